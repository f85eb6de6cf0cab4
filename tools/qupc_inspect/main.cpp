// Shows, changes and plays captures of the pipe. docs/tools.md says how it is used.
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

#include "encode.h"
#include "filter.h"
#include "hex.h"
#include "items.h"
#include "pcap.h"
#include "replay.h"
#include "views.h"

namespace {

using inspect::Form;
using inspect::InputError;

enum ExitCode : int { kSame = 0, kDifferent = 1, kBadInput = 2, kUsage = 3 };

constexpr const char* kFooter =
    "\nFILE is a capture, hexadecimal text or raw bytes; - is standard input.\n"
    "Exit codes: 0 done; 1 replay found a difference; 2 the input is not what it should be, or\n"
    "the output cannot be written; 3 the command line has a mistake.\n";

// What is written is bytes: no end of line is changed.
void makeBinary([[maybe_unused]] std::FILE* stream) {
#ifdef _WIN32
    _setmode(_fileno(stream), _O_BINARY);
#endif
}

/// A file, or standard input.
class Input {
public:
    explicit Input(const std::string& path) {
        if (path == "-") {
            makeBinary(stdin);
            return;
        }
        mFile.open(path, std::ios::binary);
        if (!mFile) {
            throw InputError(fmt::format("{}: expected a file that can be read", path));
        }
    }

    std::istream& stream() { return mFile.is_open() ? mFile : std::cin; }

private:
    std::ifstream mFile;
};

/// A file, or standard output when no name is given.
class Output {
public:
    explicit Output(const std::string& path) : mName(path.empty() ? "standard output" : path) {
        if (path.empty()) {
            makeBinary(stdout);
            return;
        }
        mFile.open(path, std::ios::binary);
        mStream = &mFile;
        check();
    }

    std::ostream& stream() { return *mStream; }

    /// Throws InputError when not all could be written so far.
    void check() {
        if (!stream().flush()) {
            throw InputError(fmt::format("{}: expected to be able to write", mName));
        }
    }

private:
    std::string mName;
    std::ofstream mFile;
    std::ostream* mStream = &std::cout;
};

const std::map<std::string, Form> kForms = {
    {"capture", Form::Capture}, {"hex", Form::Hex}, {"raw", Form::Raw}};
const std::map<std::string, inspect::Side> kSides = {{"host", inspect::Side::Host},
                                                     {"service", inspect::Side::Service}};

/// What the commands that read a capture have in common.
struct Reading {
    std::string file;
    inspect::CaptureReader::Options options;
    inspect::Filter filter;
    std::optional<oracle::Block> key;
    oracle::Block start = {};

    void addTo(CLI::App& command) {
        command.add_option("FILE", file, "what to read")->required();
        command
            .add_option_function<std::string>(
                "--as", [this](const std::string& form) { options.form = kForms.at(form); },
                "capture, hex or raw; guessed by the first byte otherwise")
            ->check(CLI::IsMember(kForms));
        command
            .add_option_function<std::string>(
                "--from", [this](const std::string& side) { options.from = kSides.at(side); },
                "who sent raw bytes, or hexadecimal text without < and >: host or service")
            ->check(CLI::IsMember(kSides));
    }

    void addFilterTo(CLI::App& command) {
        command.add_option_function<std::string>(
            "--filter",
            [this](const std::string& text) {
                try {
                    filter = inspect::Filter(text);
                } catch (const std::invalid_argument& error) {
                    throw CLI::ValidationError("--filter", error.what());
                }
            },
            "from=host|service, command=, key=, seq=, malformed; all that are given, with commas between "
            "them");
        command
            .add_option_function<std::string>(
                "--key", [this](const std::string& hex) { key = blockOf("--key", hex); },
                "open protected payloads with this AES-128 key, 32 hexadecimal digits")
            ->envname("QUPC_KEY");
        command.add_option_function<std::string>(
            "--iv", [this](const std::string& hex) { start = blockOf("--iv", hex); },
            "initial block of each side's chain, 32 hexadecimal digits; zeros otherwise");
    }

    static oracle::Block blockOf(const char* option, const std::string& hex) {
        oracle::Bytes bytes;
        try {
            bytes = inspect::bytesOfHex(hex);
        } catch (const std::invalid_argument&) {
            bytes.clear();
        }
        oracle::Block block = {};
        if (bytes.size() != block.size()) {
            throw CLI::ValidationError(option, "expected 32 hexadecimal digits");
        }
        std::copy(bytes.begin(), bytes.end(), block.begin());
        return block;
    }

    /// Uses each item that the filter lets through; before the first one, begins with whether the capture is masked.
    void each(const std::function<void(bool)>& begin,
              const std::function<void(const inspect::Item&)>& use) const {
        Input input(file);
        inspect::CaptureReader reader(input.stream(), file, options);
        inspect::ItemReader items(reader);
        if (key) {
            items.open(*key, start);
        }
        inspect::Item item;
        bool some = items.next(item); // with it comes whether texts are masked
        begin(reader.masked());
        for (; some; some = items.next(item)) {
            if (filter.lets(item)) {
                use(item);
            }
        }
    }
};

using Command = std::function<int()>;

Command addShow(CLI::App& app) {
    struct Options {
        Reading reading;
        bool json = false;
        bool hex = false;
        bool mermaid = false;

        std::unique_ptr<inspect::View> view() const {
            if (json) {
                return std::make_unique<inspect::JsonLines>();
            }
            if (mermaid) {
                return std::make_unique<inspect::Mermaid>();
            }
            return std::make_unique<inspect::Table>(hex);
        }
    };

    auto options = std::make_shared<Options>();
    CLI::App& command = *app.add_subcommand("show", "print a capture as a table");
    options->reading.addTo(command);
    options->reading.addFilterTo(command);
    command.add_flag("--follow", options->reading.options.follow, "wait for more, until the event \"exit\"");
    CLI::Option* hex = command.add_flag("--hex", options->hex, "print the bytes of each packet too");
    CLI::Option* json =
        command.add_flag("--json", options->json, "print lines of JSON that every command reads again")
            ->excludes(hex);
    command.add_flag("--mermaid", options->mermaid, "print a sequence diagram")
        ->excludes(hex)
        ->excludes(json);
    return [options] {
        const std::unique_ptr<inspect::View> view = options->view();
        Output output("");
        const bool follows = options->reading.options.follow;
        options->reading.each([&](bool masked) { output.stream() << view->head(masked); },
                              [&](const inspect::Item& item) {
                                  output.stream() << view->of(item);
                                  if (follows || !output.stream()) {
                                      output.check();
                                  }
                              });
        output.check();
        return kSame;
    };
}

Command addEncode(CLI::App& app) {
    struct Options {
        std::string file;
        std::string out;
        bool hex = false;
        bool raw = false;

        Form form() const { return hex ? Form::Hex : raw ? Form::Raw : Form::Capture; }
    };

    auto options = std::make_shared<Options>();
    CLI::App& command =
        *app.add_subcommand("encode", "make bytes of JSON lines or of a scenario's sending steps");
    command.add_option("FILE", options->file, "what to read")->required();
    command.add_option("--out", options->out, "write there, not to standard output");
    CLI::Option* hex = command.add_flag("--hex", options->hex, "write hexadecimal text, not a capture");
    command.add_flag("--raw", options->raw, "write the bytes, not a capture")->excludes(hex);
    return [options] {
        Input input(options->file);
        Output output(options->out);
        inspect::encode(input.stream(), options->file, output.stream(), options->form());
        output.check();
        return kSame;
    };
}

Command addPcap(CLI::App& app) {
    struct Options {
        Reading reading;
        std::string out;
    };

    auto options = std::make_shared<Options>();
    CLI::App& command = *app.add_subcommand("pcap", "write a capture as pcapng, for Wireshark and tshark");
    options->reading.addTo(command);
    options->reading.addFilterTo(command);
    command.add_option("--out", options->out, "write there, not to standard output");
    return [options] {
        Output output(options->out);
        inspect::PcapWriter writer(output.stream());
        options->reading.each([](bool) {}, [&](const inspect::Item& item) { writer.write(item); });
        output.check();
        return kSame;
    };
}

Command addReplay(CLI::App& app) {
    struct Options {
        Reading reading;
        inspect::ReplayOptions replay;
    };

    auto options = std::make_shared<Options>();
    options->replay.pipe = R"(\\.\pipe\uv_pipe.QuPCAudio)";
    CLI::App& command = *app.add_subcommand("replay", "play one side of a capture, and compare the other");
    options->reading.addTo(command);
    command
        .add_option_function<std::string>(
            "--side", [options](const std::string& side) { options->replay.side = kSides.at(side); },
            "host: play it to a service; service: play it to a host")
        ->check(CLI::IsMember(kSides))
        ->required();
    command
        .add_option("--speed", options->replay.speed, "times as fast as it was recorded; 0: without pauses")
        ->check(CLI::NonNegativeNumber);
    command.add_option("--wait", options->replay.patienceMs,
                       "milliseconds that a recorded packet may take to come; 5000");
    command.add_option("--pipe", options->replay.pipe, "another pipe");
    command.add_option("--run", options->replay.program, "start this host, with the arguments behind --");
    command.add_option("ARGUMENTS", options->replay.arguments, "of the host");
    return [options] {
        Output output("");
        Input input(options->reading.file);
        inspect::CaptureReader reader(input.stream(), options->reading.file, options->reading.options);
        const std::string difference = inspect::replay(reader, options->replay);
        output.stream() << (difference.empty() ? "no difference" : difference) << '\n';
        output.check();
        return difference.empty() ? kSame : kDifferent;
    };
}

int run(int argc, char** argv) {
    CLI::App app("Looks into captures of the pipe between host and audio service.", "qupc-inspect");
    app.allow_windows_style_options(false);
    app.require_subcommand(1);
    app.footer(kFooter);
    const std::map<std::string, Command> commands = {{"show", addShow(app)},
                                                     {"encode", addEncode(app)},
                                                     {"pcap", addPcap(app)},
                                                     {"replay", addReplay(app)}};
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kSame : kUsage;
    }
    return commands.at(app.get_subcommands().front()->get_name())();
}

} // namespace

int main(int argc, char** argv) {
    std::ios::sync_with_stdio(false);
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::cout.flush();
        std::cerr << error.what() << '\n';
        return kBadInput;
    }
}
