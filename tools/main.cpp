// The kelscan program: one sub-command group per capability of the library.
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>

#include "Cli.h"
#include "platform/KelString.h"
#include "platform/Trace.h"

namespace kelscan_cli {
namespace {

struct Registry {
    std::vector<std::pair<std::string, CommandSetup>> commands;
    std::multimap<int, std::pair<std::string, DemoStep>> demos;
};

Registry& GetRegistry() {
    static Registry registry;
    return registry;
}

int g_exit = 0;
std::string g_demoOut = "kelscan-demo";
bool g_verbose = false;

// The library's trace lines go to stderr only with -v: without it a failure is the one line
// the sub-command writes itself.
void ProgramTraceSink(void* /*context*/, int /*level*/, const wchar_t* line) {
    if (!g_verbose) return;
    std::cerr << kel_text::WideToUtf8(line) << '\n';
}

// The folder of the sample data: installed beside the program, else the source tree's, else
// the one the install was meant for.
std::string SampleDataDir() {
    std::error_code ec;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (!ec) {
        const std::filesystem::path installed = self.parent_path() / KELSCAN_DATA_FROM_BIN;
        if (std::filesystem::is_directory(installed, ec))
            return installed.lexically_normal().string();
    }
    if (std::filesystem::is_directory(KELSCAN_DEFAULT_DATA_DIR, ec))
        return KELSCAN_DEFAULT_DATA_DIR;
    return KELSCAN_INSTALL_DATA_DIR;
}

}  // namespace

CommandRegistrar::CommandRegistrar(const char* name, CommandSetup setup) {
    GetRegistry().commands.emplace_back(name, setup);
}

DemoRegistrar::DemoRegistrar(int order, const char* name, DemoStep step) {
    GetRegistry().demos.emplace(order, std::make_pair(std::string(name), step));
}

void SetExit(int status) { g_exit = status; }

const std::string& DemoOutDir() { return g_demoOut; }

int Fail(const std::string& message) {
    std::cerr << "kelscan: " << message << '\n';
    return kExitBadInput;
}

}  // namespace kelscan_cli

namespace {

// The sub-command where parsing stopped: the last one given on the command line.
const CLI::App* Deepest(const CLI::App* app) {
    for (;;) {
        const auto given = app->get_subcommands();
        if (given.empty()) return app;
        app = given.back();
    }
}

}  // namespace

int main(int argc, char** argv) {
    using namespace kelscan_cli;
    // The user's locale for text; every number the program reads or writes goes through
    // kel_num, which never consults it, so a comma-decimal locale changes no output.
    std::setlocale(LC_ALL, "");
    kel_trace::SetTraceSink(&ProgramTraceSink, nullptr);

    CLI::App app{
        "kelscan: camera orientation, scan planning, surfaces and scan files for a "
        "total station with a camera"};
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("kelscan ") + KELSCAN_VERSION);
    app.add_flag("-v,--verbose", g_verbose, "Also print the library's trace lines on stderr");

    std::string dataDir = SampleDataDir();
    if (const char* env = std::getenv("KELSCAN_DATA")) dataDir = env;
    CLI::App* demo = app.add_subcommand(
        "demo",
        "Run the main job on the bundled synthetic site: photograph, orientation, "
        "region, plan, scan, record, surface");
    demo->add_option("--data", dataDir, "Folder of the sample data")->capture_default_str();
    demo->add_option("--out", g_demoOut, "Folder for the files the main job writes")
        ->capture_default_str();
    bool tour = false;
    demo->add_flag("--tour", tour,
                   "Instead, run each capability on its own sample (angles, camera, orientation, "
                   "planning, surfaces, storage, photographs)");
    demo->callback([&]() {
        for (const auto& step : GetRegistry().demos) {
            // Order 0 is the main job; the tour is every other step.
            if ((step.first == 0) == tour) continue;
            std::cout << "== " << step.second.first << '\n';
            const int status = step.second.second(std::cout, dataDir);
            if (status != 0) {
                SetExit(status);
                return;
            }
            std::cout << '\n';
        }
        SetExit(0);
    });

    for (const auto& command : GetRegistry().commands) command.second(app);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::RequiredError& e) {
        // A word that names no sub-command is left over where a sub-command is required.
        const CLI::App* at = Deepest(&app);
        const auto rest = at->remaining();
        if (!rest.empty() && !rest.front().empty() && rest.front()[0] != '-') {
            std::string path;
            for (const CLI::App* a = at; a != nullptr && a != &app; a = a->get_parent())
                path = a->get_name() + " " + path;
            return Fail("unknown command \"" + path + rest.front() + "\" (kelscan " + path +
                        "--help lists the commands)");
        }
        return Fail(e.what());
    } catch (const CLI::ParseError& e) {
        // One line, exit status 2, whatever CLI11's own code would be.
        return Fail(e.what());
    }
    return g_exit;
}
