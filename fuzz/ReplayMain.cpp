// Runs a fuzz target over files and folders of files, and then over inputs that a fixed seed makes,
// where there is no libFuzzer.   usage: talven-fuzz-... [-runs=N] FILE|FOLDER...
// Other options of libFuzzer, -name=value, are ignored.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

extern "C" int LLVMFuzzerInitialize(int* piArgs, char*** pppcArgs);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pucData, std::size_t tBytes);

/// Leaves an input behind that breaks the target.
void Run(const std::string& strInput)
{
    std::ofstream("talven-fuzz-last", std::ios::binary) << strInput;
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(strInput.data()), strInput.size());
    std::filesystem::remove("talven-fuzz-last");
}

int main(int iArgs, char** ppcArgs)
{
    LLVMFuzzerInitialize(&iArgs, &ppcArgs);
    int iFiles = 0;
    long lRuns = 0;
    for (int i = 1; i < iArgs; ++i)
    {
        if (std::strncmp(ppcArgs[i], "-runs=", 6) == 0) lRuns = std::atol(ppcArgs[i] + 6);
        if (ppcArgs[i][0] == '-') continue;
        std::vector<std::filesystem::path> vFiles = {ppcArgs[i]};
        if (std::filesystem::is_directory(ppcArgs[i]))
            vFiles.assign(std::filesystem::directory_iterator(ppcArgs[i]), {});
        for (const auto& rFile : vFiles)
        {
            std::fprintf(stderr, "%s\n", rFile.c_str());
            std::ifstream aFile(rFile, std::ios::binary);
            if (!aFile) return 1;
            Run({std::istreambuf_iterator<char>(aFile), {}});
            ++iFiles;
        }
    }
    std::mt19937_64 aRandom;  // NOLINT: the same inputs every time
    for (long k = 0; k < lRuns; ++k)
    {
        std::string strInput(aRandom() % 3000, '\0');
        for (char& rcByte : strInput) rcByte = static_cast<char>(aRandom());
        Run(strInput);
    }
    std::fprintf(stderr, "%d files and %ld more inputs\n", iFiles, lRuns);
    return iFiles + lRuns == 0;
}
