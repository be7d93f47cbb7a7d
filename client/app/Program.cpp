#include "Program.h"

namespace talven
{
namespace
{

/// The commands, in the order of the help.
constexpr struct
{
    const char* pcName;
    const char* pcText;
    std::unique_ptr<CCommand> (*Make)();
    const char* pcExamples;
} g_aCommands[] = {
    {"reconstruct", "Reconstruct a volume from a tilt series", MakeReconstruct,
     "Examples:\n"
     "  talven reconstruct --tilts ts.mrc --angles ts.tlt --thickness 256 -o rec.mrc\n"
     "  talven reconstruct --tilts ts.mrc --angles ts.tlt --thickness 256 --subsets 6 \\\n"
     "      --relaxation 0.5:0.9 --exclude 3,7-9 -o rec.mrc --preview rec.png\n"
     "  talven reconstruct --tilts raw.st --mdoc raw.st.mdoc --xf raw.xf --thickness 256 \\\n"
     "      --bin 2 --method wbp --sirt-like 20 -o look.mrc --orientation xzy --mode 1\n"
     "  talven reconstruct --tilts ts.mrc --angles ts.tlt --thickness 256 --method em \\\n"
     "      --iterations 20 --server gpubox:20248 -o rec.mrc --rfactor-plot r.png\n"
     "  talven reconstruct --config ts.toml --subsets 8 -o other.mrc   (see --save-config)"},
    {"reproject", "Compute projections of a volume", MakeReproject,
     "Example:\n  talven reproject --volume rec.mrc --angles ts.tlt -o again.mrc"},
    {"transform", "Map measured projections onto the grid of a tilt series", MakeTransform,
     "Examples:\n"
     "  talven transform --measured raw.mrc --matrices shifts.txt -o ts.mrc\n"
     "  talven transform --measured raw.mrc --matrix 0.9962,-0.0872,0.0872,0.9962,3.5,-2 \\\n"
     "      --size 1000,1000 --log --beam 850 -o ts.mrc"},
    {"compare", "Tell how well measured projections agree with aligned ones", MakeCompare,
     "Examples:\n"
     "  talven reproject --volume rec.mrc --angles ts.tlt -o again.mrc\n"
     "  talven compare --measured raw.mrc --aligned again.mrc --search 20 \\\n"
     "      --write-matrices shifts.txt\n"
     "  talven transform --measured raw.mrc --matrices shifts.txt -o ts.mrc"},
    {"align", "Align a raw tilt series without markers", MakeAlign,
     "Views are brought over their neighbours, then matched with what a volume of them looks "
     "like,\n"
     "round after round. Refuses a series that comes to no agreement.\n"
     "Examples:\n"
     "  talven align --tilts raw.st --angles raw.rawtlt --thickness 256 --axis 85 -o ts.xf\n"
     "  talven reconstruct --tilts raw.st --angles raw.rawtlt --xf ts.xf --thickness 256 -o "
     "rec.mrc\n"
     "or both at once:\n"
     "  talven reconstruct --align --tilts raw.st --angles raw.rawtlt --tilt-axis 85 "
     "--thickness 256 -o rec.mrc"},
    {"batch plan", "Cut one or many reconstructions into tasks for many machines", MakeBatchPlan,
     "Options are those of talven reconstruct, but the volume is --output.\n"
     "Examples:\n"
     "  talven batch plan -o job.json --slabs 8 --tilts ts.mrc --angles ts.tlt --thickness 512 \\\n"
     "      --output rec.mrc\n"
     "  talven batch plan -o week.json --table series.csv --thickness 256 --iterations 15\n"
     "with series.csv:\n"
     "  tilts,angles,output,subsets\n"
     "  a.mrc,a.tlt,a_rec.mrc,6\n"
     "  b.mrc,b.tlt,b_rec.mrc,"},
    {"batch run", "Run one task of a batch, or all that are not done", MakeBatchRun,
     "Does nothing when the valid result is there. Exit code 75: another attempt may do.\n"
     "Examples:\n"
     "  talven batch run job.json 3\n"
     "  talven batch run job.json $SLURM_ARRAY_TASK_ID\n"
     "  talven batch run job.json --all --servers gpubox,otherbox:20248"},
    {"batch status", "Show which tasks of a batch are done", MakeBatchStatus,
     "Example:\n  talven batch status job.json"},
    {"batch join", "Put the parts of the volumes of a batch together", MakeBatchJoin,
     "Exit code 1 and a list when a part is missing.\n"
     "Example:\n  talven batch join job.json --remove-parts"},
    {"view", "Draw slices of a volume or stack", MakeView,
     "Examples:\n"
     "  talven view rec.mrc -o middle.png\n"
     "  talven view rec.mrc --axis y --slices 100,120,140 --contrast 1,99 -o slices.png"},
    {"info", "Show what a server has", MakeInfo, "Example:\n  talven info --server gpubox:20248"},
    {"phantom", "Write a synthetic tilt series, its angles and its true volume", MakePhantom,
     "Example:\n"
     "  talven phantom --size 512,256 --thickness 128 --noise 0.02 --seed 1 phantom\n"
     "  talven reconstruct --tilts phantom.mrc --angles phantom.tlt --thickness 128 \\\n"
     "      -o volume.mrc --reference phantom_truth.mrc"},
    {"check-geometry", "Tell which way a series turns, where slice 0 and the centre are",
     MakeCheckGeometry,
     "Examples:\n"
     "  talven check-geometry\n"
     "  talven check-geometry --tilt-axis 85.3 --bin 2 --shift-z 4 --orientation xzy --flip-z"},
    {"serve", "Run talven-server in the foreground", MakeServe,
     "With an option, the settings are these and the environment's; without any, a config.gpu\n"
     "in the working directory counts.\n"
     "Example:\n  talven serve --port 20248 --bind 127.0.0.1 --devices 2"},
};

}  // namespace

CProgram::CProgram()
{
    m_aParser.require_subcommand(1);
    m_aParser.set_version_flag("--version", "talven " TALVEN_VERSION);
    m_aParser.get_formatter()->column_width(32);
    m_aParser.footer("talven COMMAND --help shows the options of a command and examples.");
    m_aParser.set_config("--config", "", "Options in a section [COMMAND]; those given here win")
        ->type_name("FILE");
    m_aParser.allow_config_extras(CLI::config_extras_mode::error);
    m_aParser
        .add_option("--save-config", m_strSavePath, "Write the options given into such a file")
        ->type_name("FILE")
        ->configurable(false);
    for (const auto& rRow : g_aCommands)
    {
        CLI::App* pParser = mAddParser(rRow.pcName)->description(rRow.pcText);
        pParser->footer(rRow.pcExamples);
        pParser->fallthrough();
        m_aCommands[pParser] = rRow.Make();
        m_aCommands[pParser]->AddOptions(*pParser);
    }
}

/// \param strName  "COMMAND", or "GROUP COMMAND", whose group is made when it is not there
CLI::App* CProgram::mAddParser(const std::string& strName)
{
    const std::size_t tBlank = strName.find(' ');
    if (tBlank == std::string::npos) return m_aParser.add_subcommand(strName);
    const std::string strGroup = strName.substr(0, tBlank);
    CLI::App*& pGroup = m_apGroups[strGroup];
    if (pGroup == nullptr)
    {
        pGroup = m_aParser.add_subcommand(strGroup,
                                          "Many tomograms, or one in parts: plan, run, "
                                          "status, join");
        pGroup->require_subcommand(1)->fallthrough();
        pGroup->footer("talven " + strGroup + " COMMAND --help shows the options of a command.");
    }
    return pGroup->add_subcommand(strName.substr(tBlank + 1));
}

}  // namespace talven
