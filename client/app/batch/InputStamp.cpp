#include "InputStamp.h"

#include <sys/stat.h>
#define XXH_INLINE_ALL
#include <xxhash.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr std::size_t g_tHashed = std::size_t(1) << 20;  // bytes of a file

bool LookAt(const std::string& strPath, struct stat& rStat, std::string& rError)
{
    return stat(strPath.c_str(), &rStat) == 0 ||
           Fail(rError, strPath + ": cannot read: " + std::strerror(errno));
}

std::int64_t GetTime(const struct stat& rStat)
{
    return std::int64_t(rStat.st_mtim.tv_sec) * 1'000'000'000 + rStat.st_mtim.tv_nsec;
}

bool HashBegin(InputStamp& rStamp, std::string& rError)
{
    std::ifstream aFile(rStamp.strPath, std::ios::binary);
    std::vector<char> vcBegin(std::min<std::uint64_t>(rStamp.ulBytes, g_tHashed));
    if (!aFile.read(vcBegin.data(), std::streamsize(vcBegin.size())))
        return Fail(rError, rStamp.strPath + ": cannot read: " + std::strerror(errno));
    rStamp.strHash = Hash(std::as_bytes(std::span(vcBegin)));
    return true;
}

/// All files of a folder count as one.
bool HashFolder(InputStamp& rStamp, std::string& rError)
{
    rStamp.ulBytes = 0;
    std::vector<std::string> vstrFiles;
    std::error_code aError;
    for (const auto& rEntry : std::filesystem::directory_iterator(rStamp.strPath, aError))
    {
        struct stat aStat = {};
        if (!LookAt(rEntry.path(), aStat, rError)) return false;
        rStamp.ulBytes += static_cast<std::uint64_t>(aStat.st_size);
        rStamp.iTime = std::max(rStamp.iTime, GetTime(aStat));
        vstrFiles.push_back(Format("%s %lld\n", rEntry.path().filename().c_str(),
                                   static_cast<long long>(aStat.st_size)));
    }
    if (aError) return Fail(rError, rStamp.strPath + ": cannot read: " + aError.message());
    std::ranges::sort(vstrFiles);
    std::string strAll;
    for (const std::string& rFile : vstrFiles) strAll += rFile;
    rStamp.strHash = Hash(std::as_bytes(std::span(strAll)));
    return true;
}

}  // namespace

std::string Hash(std::span<const std::byte> pBytes)
{
    const XXH128_hash_t aHash = XXH3_128bits(pBytes.data(), pBytes.size());
    return Format("%016llx%016llx", static_cast<unsigned long long>(aHash.high64),
                  static_cast<unsigned long long>(aHash.low64));
}

bool MakeStamp(const std::string& strPath, InputStamp& rStamp, std::string& rError)
{
    struct stat aStat = {};
    if (!LookAt(strPath, aStat, rError)) return false;
    rStamp = {strPath, static_cast<std::uint64_t>(aStat.st_size), GetTime(aStat), {}};
    return S_ISDIR(aStat.st_mode) ? HashFolder(rStamp, rError) : HashBegin(rStamp, rError);
}

bool CheckStamp(const InputStamp& rStamp, std::string& rError)
{
    InputStamp aNow;
    if (!MakeStamp(rStamp.strPath, aNow, rError)) return false;
    const char* pcWhat = aNow.ulBytes != rStamp.ulBytes   ? "size"
                         : aNow.strHash != rStamp.strHash ? "content"
                         : aNow.iTime != rStamp.iTime     ? "time"
                                                          : nullptr;
    return pcWhat == nullptr ||
           Fail(rError, rStamp.strPath + " has changed since the batch was planned: its " + pcWhat);
}

}  // namespace talven
