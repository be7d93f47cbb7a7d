// Writes the manual pages and the completion of the talven program, at build time.
//   talven-pages docs/cli.md DATE INSTALLED_DOCUMENTS FOLDER

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "Completion.h"
#include "ManPages.h"
#include "Program.h"
#include "talven/AtomicFile.h"

int main(int iArgs, char** ppcArgs)
{
    using namespace talven;
    if (iArgs != 5) return 2;
    std::ifstream aFile(ppcArgs[1]);
    const ManSource aSource{{std::istreambuf_iterator<char>(aFile), {}}, ppcArgs[2], ppcArgs[3]};
    CProgram aProgram;
    const ProgramText aText = DescribeProgram(aProgram.GetParser());

    auto aPages = MakeManPages(aText, aSource);
    aPages["talven.bash"] = MakeBashCompletion(aText);
    aPages["_talven"] = MakeZshCompletion(aText);
    aPages["talven.fish"] = MakeFishCompletion(aText);
    const std::filesystem::path aFolder = ppcArgs[4];
    std::filesystem::create_directories(aFolder);
    for (const auto& [strName, strText] : aPages)
    {
        std::string strError;
        if (WriteTextFile(aFolder / strName, strText, strError)) continue;
        std::fprintf(stderr, "talven-pages: %s\n", strError.c_str());
        return 1;
    }
}
