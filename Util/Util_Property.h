#pragma once

#include <memory>
#include <vector>

/// One line of a key=value file. Either part may be null.
struct Util_Entry
{
    std::unique_ptr<char[]> m_pcKey;
    std::unique_ptr<char[]> m_pcVal;
};

/// Reader of key=value files: one entry per line, blanks removed everywhere, keys without case.
///
/// There are no comments; a second '=' ends the value. A file that cannot be read has no entries.
class Util_Property
{
public:
    explicit Util_Property(const char* pcFileName) { SetFileName(pcFileName); }

    void SetFileName(const char* pcFileName);  ///< forgets what was read, then reads
    /// The value as a number, 0 when the key is missing or has no value.
    double GetValue(const char* pcKey) const;
    /// The value, null when the key is missing or has none; valid until the next SetFileName.
    const char* GetStringValue(const char* pcKey) const;
    bool GetBooleanValue(const char* pcKey) const;  ///< true for "true", whatever its case
    int GetNumEntries() const { return static_cast<int>(m_vEntries.size()); }

private:
    void mParse(char* pcText);
    std::vector<Util_Entry> m_vEntries;  // as many as the file has lines
};
