#include "scenario.h"

#include <array>

#include "scenario_words.h"

namespace standin {

namespace {

template <typename Value>
std::vector<std::string> keysOf(const std::map<std::string, Value>& map) {
    std::vector<std::string> keys;
    for (const auto& [key, value] : map) {
        keys.push_back(key);
    }
    return keys;
}

EntrySpec::Kind takeEntryKind(WordReader& words) {
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
    for (const auto& [word, kind] : kKinds) {
        if (words.accept(word)) {
            return kind;
        }
    }
    words.fail("an entry (" + listed(keysOf(kKinds)) + ")", keysOf(kKinds));
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
                failUnclosed(mScenario.steps[mOpenBlocks.back()].line);
            }
        } catch (const ScenarioError& error) {
            mScenario.mistake = Mistake{mLine, error.column(), error.what()};
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
            mWords = WordReader(line);
            if (!mWords.atEnd()) {
                return true;
            }
        }
        return false;
    }

    [[noreturn]] void failUnclosed(std::size_t line) {
        mLine = line;
        throw ScenarioError(1, "expected \"end\" for this block, found the end of the scenario");
    }

    void parseStep();

    void add(Action action) {
        mWords.expectEnd();
        mScenario.steps.push_back({mLine, std::move(action)});
    }

    Guard guard() {
        return mWords.accept("guard") ? Guard(mWords.plainNumber("milliseconds")) : std::nullopt;
    }

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
        SendFill step{mWords.number("count")};
        step.byte = static_cast<std::uint8_t>(mWords.plainNumber("byte"));
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

    Number numberOrWord(const char* what, const std::vector<std::string>& words) {
        try {
            return mWords.number(what);
        } catch (const ScenarioError&) {
            mWords.fail(what, words);
        }
    }

    void openBlock(Action begin) {
        mOpenBlocks.push_back(mScenario.steps.size());
        add(std::move(begin));
    }

    std::string_view mText;
    std::size_t mLine = 0;
    WordReader mWords;
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
    for (const auto& [name, rule] : kRules) {
        if (mWords.accept(name)) {
            (this->*rule)();
            return;
        }
    }
    mWords.fail("a step", keysOf(kRules));
}

void Parser::parseWait() {
    if (mWords.accept("connection")) {
        add(WaitConnection{guard()});
    } else if (mWords.accept("file")) {
        WaitFile step{mWords.text("path"), {}};
        step.guard = guard();
        add(std::move(step));
    } else if (mWords.accept("packet")) {
        WaitPacket step;
        step.count = {1, {}};
        if (mWords.accept("command")) {
            step.command = mWords.command();
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
        const Number time = numberOrWord("\"connection\", \"packet\", \"file\" or a number of milliseconds",
                                         {"connection", "packet", "file"});
        add(WaitTime{time});
    }
}

void Parser::parsePacket() {
    SendPacket step;
    const std::size_t line = mLine;
    step.packet.command = mWords.command();
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
    const std::size_t line = mLine;
    std::vector<EntrySpec> entries;
    while (nextLine()) {
        if (mWords.accept("end")) {
            mWords.expectEnd();
            return entries;
        }
        entries.push_back(parseEntry());
    }
    failUnclosed(line);
}

EntrySpec Parser::parseEntry() {
    using Kind = EntrySpec::Kind;
    EntrySpec entry;
    entry.kind = takeEntryKind(mWords);
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
        throw ScenarioError(mWords.lastColumn(), "expected a step, found \"end\" without a block");
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
        mWords.fail("\"exit\" or \"ignore\"", {"exit", "ignore"});
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

Scenario parseScenario(std::string_view text) {
    return Parser(text).parse();
}

} // namespace standin
