// Runs a fuzz target over files and folders of files, where there is no libFuzzer.
// usage: talven-fuzz-... FILE|FOLDER...   (options of libFuzzer, -name=value, are ignored)

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* piArgs, char*** pppcArgs);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pucData, std::size_t tBytes);

namespace
{
void CollectFiles(const std::filesystem::path& rPath, std::vector<std::filesystem::path>& rFiles)
{
    if (!std::filesystem::is_directory(rPath)) return rFiles.push_back(rPath);
    for (const auto& rEntry : std::filesystem::recursive_directory_iterator(rPath))
        if (rEntry.is_regular_file()) rFiles.push_back(rEntry.path());
}

bool Replay(const std::filesystem::path& rFile)
{
    std::fprintf(stderr, "%s\n", rFile.c_str());
    std::ifstream aStream(rFile, std::ios::binary);
    if (!aStream)
    {
        std::fputs("cannot be read\n", stderr);
        return false;
    }
    const std::vector<char> vcBytes{std::istreambuf_iterator<char>(aStream), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(vcBytes.data()), vcBytes.size());
    return true;
}
}  // namespace

int main(int iArgs, char** ppcArgs)
{
    LLVMFuzzerInitialize(&iArgs, &ppcArgs);
    std::vector<std::filesystem::path> vFiles;
    for (int i = 1; i < iArgs; ++i)
        if (ppcArgs[i][0] != '-') CollectFiles(ppcArgs[i], vFiles);
    for (const auto& rFile : vFiles)
        if (!Replay(rFile)) return 1;
    std::fprintf(stderr, "%zu inputs\n", vFiles.size());
    return vFiles.empty() ? 1 : 0;
}
