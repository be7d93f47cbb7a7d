// Runs a fuzz target over folders of files, and then over inputs that a fixed seed makes, where
// there is no libFuzzer.   usage: talven-fuzz-... -runs=N FOLDER...

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
    if (iArgs < 3 || std::strncmp(ppcArgs[1], "-runs=", 6) != 0) return 2;
    LLVMFuzzerInitialize(&iArgs, &ppcArgs);
    for (int i = 2; i < iArgs; ++i)
        for (const auto& rFile : std::filesystem::recursive_directory_iterator(ppcArgs[i]))
        {
            std::fprintf(stderr, "%s\n", rFile.path().c_str());
            std::ifstream aFile(rFile.path(), std::ios::binary);
            Run({std::istreambuf_iterator<char>(aFile), {}});
        }
    std::mt19937_64 aRandom;  // NOLINT: the same inputs every time
    for (long k = std::atol(ppcArgs[1] + 6); k > 0; --k)
    {
        std::string strInput(aRandom() % 3000, '\0');
        for (char& rcByte : strInput) rcByte = static_cast<char>(aRandom());
        Run(strInput);
    }
}
