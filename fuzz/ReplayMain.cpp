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
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* piArgs, char*** pppcArgs);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pucData, std::size_t tBytes);

namespace
{
using Input = std::vector<std::uint8_t>;

/// Left behind when the input breaks the target.
constexpr const char* g_pcLast = "talven-fuzz-last";

void Run(const Input& rInput)
{
    LLVMFuzzerTestOneInput(rInput.data(), rInput.size());
}

bool Replay(const std::filesystem::path& rFile)
{
    std::fprintf(stderr, "%s\n", rFile.c_str());
    std::ifstream aStream(rFile, std::ios::binary);
    const std::vector<char> vcBytes{std::istreambuf_iterator<char>(aStream), {}};
    Run({vcBytes.begin(), vcBytes.end()});
    return aStream.good() || aStream.eof();
}

Input Draw(std::mt19937_64& rRandom)
{
    Input vInput(rRandom() % 3000);
    for (std::uint8_t& rByte : vInput) rByte = static_cast<std::uint8_t>(rRandom());
    return vInput;
}
}  // namespace

int main(int iArgs, char** ppcArgs)
{
    LLVMFuzzerInitialize(&iArgs, &ppcArgs);
    std::size_t tInputs = 0;
    long lRuns = 0;
    for (int i = 1; i < iArgs; ++i)
    {
        if (std::strncmp(ppcArgs[i], "-runs=", 6) == 0) lRuns = std::atol(ppcArgs[i] + 6);
        if (ppcArgs[i][0] == '-') continue;
        std::vector<std::filesystem::path> vFiles = {ppcArgs[i]};
        if (std::filesystem::is_directory(ppcArgs[i]))
            vFiles.assign(std::filesystem::directory_iterator(ppcArgs[i]), {});
        for (const auto& rFile : vFiles)
            if (!Replay(rFile)) return 1;
        tInputs += vFiles.size();
    }
    std::mt19937_64 aRandom;  // NOLINT: the same inputs every time
    for (; lRuns > 0; --lRuns, ++tInputs)
    {
        const Input vInput = Draw(aRandom);
        std::ofstream(g_pcLast, std::ios::binary)
            .write(reinterpret_cast<const char*>(vInput.data()), std::streamsize(vInput.size()));
        Run(vInput);
    }
    std::filesystem::remove(g_pcLast);
    std::fprintf(stderr, "%zu inputs\n", tInputs);
    return tInputs == 0;
}
