// The stand-in service process. README.md in this folder says how to drive it.
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>
#include <uv.h>

#include "gallery.h"
#include "player.h"

namespace {

constexpr int kExitUsage = 92;

constexpr const char* kFooter = R"(
The library starts this program with two arguments, the log folder and the level; they are taken and
recorded. Each flag may also be given by its variable, which is how a host's test sets it.

Exit codes: 0 stopped, or what the scenario says; 89 --guard; 90 a wait's guard; 91 the scenario has a
mistake (--check: the same); 92 the command line has one.)";

struct Options {
    std::string scenario;
    std::string record;
    bool recordSent = false;
    std::string pipe = R"(\\.\pipe\uv_pipe.QuPCAudio)";
    std::int64_t guardSeconds = 0;
    standin::Show::Options show;
    bool showSecrets = false;
    std::string color = "auto";
    std::string check;
    bool gallery = false;
};

void describe(CLI::App& app, Options& options) {
    app.set_help_flag("--help", "this page");
    app.allow_extras();
    app.allow_windows_style_options(false);
    app.footer(kFooter);
    app.add_option("--scenario", options.scenario,
                   "file, or name in the gallery, to play; none: serve until stopped")
        ->envname("SONVIA_STANDIN_SCENARIO");
    app.add_option("--record", options.record, "append what happens to this file, one JSON object a line")
        ->envname("SONVIA_STANDIN_RECORD");
    app.add_flag("--record-sent", options.recordSent, "record what is sent too: a capture of both directions")
        ->envname("SONVIA_STANDIN_RECORD_SENT");
    app.add_flag("--show", options.show.on, "print a timeline of what happens")
        ->envname("SONVIA_STANDIN_SHOW");
    app.add_option("--show-to", options.show.file, "the same, appended to a file")
        ->envname("SONVIA_STANDIN_SHOW_TO");
    app.add_flag("--show-secrets", options.showSecrets, "do not mask the texts that the host sends")
        ->envname("SONVIA_STANDIN_SHOW_SECRETS");
    app.add_option("--color", options.color, "auto, always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->envname("SONVIA_STANDIN_COLOR");
    app.add_option("--pipe", options.pipe, "serve another pipe")->envname("SONVIA_STANDIN_PIPE");
    app.add_option("--guard", options.guardSeconds,
                   "seconds after which to end with 89, waits with 90 after 30")
        ->check(CLI::NonNegativeNumber)
        ->envname("SONVIA_STANDIN_GUARD");
    app.add_option("--check", options.check, "only look for mistakes in this scenario");
    app.add_flag("--gallery", options.gallery, "only list the ready scenarios");
}

/// The formatter's own layout spreads a page like this one over two screens.
class OnePage : public CLI::Formatter {
public:
    std::string make_option_opts(const CLI::Option* option) const override {
        return option->get_items_expected_max() == 0 ? "" : " X";
    }

    std::string make_option_desc(const CLI::Option* option) const override {
        const std::string& variable = option->get_envname();
        return option->get_description() + (variable.empty() ? "" : "\n" + variable);
    }
};

bool wantsColor(const Options& options) {
    if (options.color != "auto") {
        return options.color == "always";
    }
    return options.show.file.empty() && std::getenv("NO_COLOR") == nullptr && uv_guess_handle(1) == UV_TTY;
}

standin::Scenario loadScenario(const std::string& pathOrName) {
    const std::optional<std::string> text = pathOrName.empty() ? "" : standin::readScenario(pathOrName);
    if (!text) {
        standin::Scenario unreadable;
        unreadable.mistake = standin::Mistake{
            1, 1, "expected a file or a name of the gallery" + standin::suggestion(pathOrName, [] {
                      std::vector<std::string> names;
                      for (const standin::GalleryEntry& entry : standin::gallery()) {
                          names.push_back(entry.name);
                      }
                      return names;
                  }())};
        return unreadable;
    }
    return standin::parseScenario(*text);
}

int check(const std::string& path) {
    const standin::Scenario scenario = loadScenario(path);
    if (scenario.mistake) {
        std::fprintf(stderr, "%s\n", scenario.mistake->describe(path).c_str());
        return standin::kExitBadScenario;
    }
    std::printf("%s: %zu steps, no mistake\n", path.c_str(), scenario.steps.size() - 1);
    return 0;
}

int listGallery() {
    for (const standin::GalleryEntry& entry : standin::gallery()) {
        std::printf("%-16s %s\n", entry.name.c_str(), entry.purpose.c_str());
    }
    return 0;
}

std::string jsonArguments(int argc, char** argv) {
    std::string arguments = "[";
    for (int i = 0; i < argc; ++i) {
        arguments.append(i == 0 ? "" : ",").append(standin::jsonText(argv[i]));
    }
    return arguments + "]";
}

int play(const Options& options, int argc, char** argv) {
    standin::Record record(options.record);
    record.write(standin::startLine(!options.showSecrets).json("argv", jsonArguments(argc, argv)));
    standin::Scenario scenario = loadScenario(options.scenario);
    if (scenario.mistake) {
        const std::string text = scenario.mistake->describe(options.scenario);
        record.write(standin::RecordLine("scenario-error").text("reason", text));
        std::fprintf(stderr, "%s\n", text.c_str());
        return standin::kExitBadScenario;
    }
    standin::Show::Options showing = options.show;
    showing.color = wantsColor(options);
    standin::Show show(showing);
    standin::PlayerOptions playing{options.pipe,
                                   standin::programFolder() + "standin_child.exe",
                                   {},
                                   options.showSecrets,
                                   options.recordSent};
    if (options.guardSeconds != 0) {
        playing.guardSeconds = options.guardSeconds;
    }
    standin::Player player(uv_default_loop(), std::move(scenario), std::move(playing), record, show);
    player.start();
    return uv_run(uv_default_loop(), UV_RUN_DEFAULT);
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app("The stand-in for the audio service: serves its pipe and plays a scenario.");
    app.formatter(std::make_shared<OnePage>());
    describe(app, options);
    try {
        app.parse(argc, argv);
        for (const std::string& extra : app.remaining()) {
            if (extra.rfind("--", 0) == 0) {
                throw CLI::ExtrasError({extra});
            }
        }
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kExitUsage;
    }
    if (options.gallery) {
        return listGallery();
    }
    return options.check.empty() ? play(options, argc, argv) : check(options.check);
}
