#include "scenario.h"

#include <array>

#include "scenario_words.h"

namespace standin {

namespace {

constexpr std::int64_t kDefaultGuardMs = 30000;

EntrySpec::Kind entryKind(const std::string& word) {
    using Kind = EntrySpec::Kind;
    static const std::map<std::string, Kind> kKinds = {
        {"byte", Kind::kByte},
        {"int", Kind::kInt},
        {"string", Kind::kString},
        {"hex", Kind::kHex},
        {"fill-string", Kind::kFillString},
        {"nested", Kind::kNested},
        {"typed", Kind::kTyped},
    };
    const auto found = kKinds.find(word);
    if (found == kKinds.end()) {
        throw ScenarioError("unknown entry: " + word);
    }
    return found->second;
}

class Parser {
public:
    explicit Parser(std::string_view text) : mText(text) { mScenario.steps.push_back({0, Listen{}}); }

    Scenario parse() {
        try {
            while (nextLine()) {
                parseStep();
            }
            if (!mOpenBlocks.empty()) {
                throw ScenarioError("a block is not closed");
            }
        } catch (const ScenarioError& error) {
            mScenario.error = "line " + std::to_string(mLine) + ": " + error.what();
        }
        return std::move(mScenario);
    }

private:
    using Rule = void (Parser::*)();

    // Moves to the next line that has words. False at the end of the text.
    bool nextLine() {
        while (!mText.empty()) {
            const std::size_t end = mText.find('\n');
            const std::string_view line = mText.substr(0, end);
            mText.remove_prefix(end == std::string_view::npos ? mText.size() : end + 1);
            ++mLine;
            mWords = WordReader(splitWords(line));
            if (!mWords.atEnd()) {
                return true;
            }
        }
        return false;
    }

    void parseStep();

    void add(Action action) {
        mWords.expectEnd();
        mScenario.steps.push_back({mLine, std::move(action)});
    }

    std::int64_t guard() { return mWords.accept("guard") ? mWords.plainNumber("guard") : kDefaultGuardMs; }

    void parseWait();
    void parsePacket();
    void parseRepeat();
    void parseEnd();
    void parseOnStop();
    EntrySpec parseEntry();
    std::vector<EntrySpec> parseEntriesUntilEnd();

    void parseListen() {
        mScenario.steps.front().action = WaitTime{};
        add(Listen{});
    }

    void parseNoPipe() {
        mScenario.steps.front().action = WaitTime{};
        mWords.expectEnd();
    }

    void parseGuard() {
        mScenario.guardSeconds = mWords.plainNumber("seconds");
        mWords.expectEnd();
    }

    void parseNotify() {
        SendPacket step;
        step.packet.command = {34, {}};
        const std::size_t line = mLine;
        step.packet.entries.push_back(parseEntry());
        mScenario.steps.push_back({line, std::move(step)});
    }

    void parseBytes() { add(SendBytes{mWords.hexBytes()}); }

    void parseFill() {
        SendFill step{mWords.number("count"), 0};
        step.byte = static_cast<char>(mWords.plainNumber("byte"));
        add(std::move(step));
    }

    void parseSplit() {
        SplitBegin step;
        if (mWords.accept("pace")) {
            step.pace = mWords.number("pace");
        }
        openBlock(std::move(step));
    }

    void parseJoin() { openBlock(JoinBegin{}); }

    void parseExit() { add(Exit{mWords.atEnd() ? Number{} : mWords.number("exit code")}); }

    void parseChildren() { add(StartChildren{mWords.number("count")}); }

    void parseNote() { add(Note{mWords.text("text")}); }

    void parseFlush() { add(Flush{}); }

    void parseDisconnect() { add(Disconnect{}); }

    void parseClose() { add(ClosePipe{}); }

    void parseCrash() { add(Crash{}); }

    void parseStopReading() { add(ReadingSwitch{false}); }

    void parseStartReading() { add(ReadingSwitch{true}); }

    void parseReadSlowly() {
        ReadSlowly step{mWords.number("bytes"), {}};
        step.pause = mWords.number("milliseconds");
        add(std::move(step));
    }

    void openBlock(Action begin) {
        mOpenBlocks.push_back(mScenario.steps.size());
        add(std::move(begin));
    }

    std::string_view mText;
    std::size_t mLine = 0;
    WordReader mWords{{}};
    std::vector<std::size_t> mOpenBlocks; // indexes of the begin steps that still wait for their end
    Scenario mScenario;
};

void Parser::parseStep() {
    static const std::map<std::string, Rule> kRules = {
        {"wait", &Parser::parseWait},
        {"listen", &Parser::parseListen},
        {"no-pipe", &Parser::parseNoPipe},
        {"guard", &Parser::parseGuard},
        {"notify", &Parser::parseNotify},
        {"packet", &Parser::parsePacket},
        {"bytes", &Parser::parseBytes},
        {"fill", &Parser::parseFill},
        {"flush", &Parser::parseFlush},
        {"repeat", &Parser::parseRepeat},
        {"split", &Parser::parseSplit},
        {"join", &Parser::parseJoin},
        {"end", &Parser::parseEnd},
        {"disconnect", &Parser::parseDisconnect},
        {"close", &Parser::parseClose},
        {"crash", &Parser::parseCrash},
        {"exit", &Parser::parseExit},
        {"stop-reading", &Parser::parseStopReading},
        {"start-reading", &Parser::parseStartReading},
        {"read-slowly", &Parser::parseReadSlowly},
        {"on-stop", &Parser::parseOnStop},
        {"children", &Parser::parseChildren},
        {"note", &Parser::parseNote},
    };
    const std::string name = mWords.word("step");
    const auto rule = kRules.find(name);
    if (rule == kRules.end()) {
        throw ScenarioError("unknown step: " + name);
    }
    (this->*(rule->second))();
}

void Parser::parseWait() {
    if (mWords.accept("connection")) {
        add(WaitConnection{guard()});
    } else if (mWords.accept("file")) {
        WaitFile step{mWords.text("path"), 0};
        step.guard = guard();
        add(std::move(step));
    } else if (mWords.accept("packet")) {
        WaitPacket step;
        step.count = {1, {}};
        if (mWords.accept("command")) {
            step.command = mWords.number("command");
        }
        if (mWords.accept("key")) {
            step.key = mWords.text("key");
        }
        if (mWords.accept("count")) {
            step.count = mWords.number("count");
        }
        step.guard = guard();
        add(std::move(step));
    } else {
        add(WaitTime{mWords.number("milliseconds")});
    }
}

void Parser::parsePacket() {
    SendPacket step;
    const std::size_t line = mLine;
    step.packet.command = mWords.number("command");
    while (!mWords.atEnd()) {
        if (mWords.accept("seq")) {
            step.packet.seq = mWords.number("seq");
        } else if (mWords.accept("size")) {
            step.packet.announcedSize = mWords.number("size");
        } else if (mWords.accept("magic")) {
            step.packet.magic = mWords.number("magic");
        } else if (mWords.accept("cut")) {
            step.packet.cut = mWords.number("cut");
        } else {
            mWords.expectEnd();
        }
    }
    step.packet.entries = parseEntriesUntilEnd();
    mScenario.steps.push_back({line, std::move(step)});
}

std::vector<EntrySpec> Parser::parseEntriesUntilEnd() {
    std::vector<EntrySpec> entries;
    while (nextLine()) {
        if (mWords.accept("end")) {
            mWords.expectEnd();
            return entries;
        }
        entries.push_back(parseEntry());
    }
    throw ScenarioError("entries are not closed by \"end\"");
}

EntrySpec Parser::parseEntry() {
    using Kind = EntrySpec::Kind;
    EntrySpec entry;
    entry.kind = entryKind(mWords.word("entry"));
    if (entry.kind == Kind::kTyped) {
        entry.type = static_cast<std::uint8_t>(mWords.plainNumber("type"));
    }
    if (entry.kind != Kind::kHex) {
        entry.key = mWords.text("key");
    }
    if (entry.kind == Kind::kByte || entry.kind == Kind::kInt || entry.kind == Kind::kFillString) {
        entry.number = mWords.number("value");
    }
    if (entry.kind == Kind::kString) {
        entry.text = mWords.text("value");
    }
    if (entry.kind == Kind::kTyped || entry.kind == Kind::kHex) {
        entry.bytes = mWords.hexBytes();
    }
    if (mWords.accept("length")) {
        entry.announcedLength = mWords.number("length");
    }
    mWords.expectEnd();
    if (entry.kind == Kind::kNested) {
        entry.nested = parseEntriesUntilEnd();
    }
    return entry;
}

void Parser::parseRepeat() {
    RepeatBegin step;
    if (!mWords.accept("forever")) {
        step.count = mWords.number("count");
    }
    step.counter = mWords.accept("as") ? mWords.word("counter") : "i";
    openBlock(std::move(step));
}

void Parser::parseEnd() {
    if (mOpenBlocks.empty()) {
        throw ScenarioError("\"end\" without a block");
    }
    const std::size_t begin = mOpenBlocks.back();
    mOpenBlocks.pop_back();
    Action& opened = mScenario.steps[begin].action;
    if (auto* repeat = std::get_if<RepeatBegin>(&opened)) {
        repeat->end = mScenario.steps.size();
        add(RepeatEnd{begin});
    } else if (std::holds_alternative<SplitBegin>(opened)) {
        add(SplitEnd{});
    } else {
        add(JoinEnd{});
    }
}

void Parser::parseOnStop() {
    OnStop step;
    step.ignore = mWords.accept("ignore");
    if (!step.ignore && !mWords.accept("exit")) {
        throw ScenarioError("on-stop needs \"exit\" or \"ignore\"");
    }
    if (!step.ignore && mWords.accept("code")) {
        step.code = mWords.number("exit code");
    }
    if (!step.ignore && mWords.accept("after")) {
        step.after = mWords.number("milliseconds");
    }
    add(std::move(step));
}

} // namespace

std::int64_t Number::value(const Counters& counters) const {
    if (counter.empty()) {
        return literal;
    }
    const auto found = counters.find(counter);
    return found == counters.end() ? 0 : found->second;
}

std::string Text::value(const Counters& counters) const {
    std::string out;
    std::size_t at = 0;
    while (true) {
        const std::size_t open = pattern.find("${", at);
        const std::size_t close = open == std::string::npos ? open : pattern.find('}', open);
        if (close == std::string::npos) {
            return out.append(pattern, at);
        }
        out.append(pattern, at, open - at);
        out.append(std::to_string(Number{0, pattern.substr(open + 2, close - open - 2)}.value(counters)));
        at = close + 1;
    }
}

Scenario parseScenario(std::string_view text) {
    return Parser(text).parse();
}

} // namespace standin
