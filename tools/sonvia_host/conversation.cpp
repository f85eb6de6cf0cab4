#include "conversation.h"

#include <stdexcept>
#include <utility>

namespace host {

namespace {

using Json = nlohmann::json;

// What is wrong with a call, in words for whoever wrote it.
class BadCall : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

void check(const std::error_code& failed) {
    if (failed) {
        throw std::system_error(failed);
    }
}

std::string textOf(const Json& call, const char* name) {
    const auto found = call.find(name);
    if (found == call.end() || !found->is_string()) {
        throw BadCall(std::string(name) + " has to be a text");
    }
    return found->get<std::string>();
}

sonvia::LogLevel levelOf(const Json& call) {
    sonvia::LogLevel level = sonvia::LogLevel::Info;
    if (call.contains("logLevel") && !findLogLevel(textOf(call, "logLevel"), level)) {
        throw BadCall("logLevel has to be debug, info, warning or error");
    }
    return level;
}

// The parser's message without the name of its class and the place, which has a field of its own.
std::string reasonOf(const Json::parse_error& error) {
    const std::string text = error.what();
    const std::size_t column = text.find(", column ");
    const std::size_t colon = column == std::string::npos ? column : text.find(": ", column);
    return colon == std::string::npos ? text : text.substr(colon + 2);
}

} // namespace

Conversation::Conversation(LineOutput& output, sonvia::Library library, std::chrono::milliseconds connectTime)
    : mOutput(output), mLibrary(library), mConnectTime(connectTime) {
    write({{"ready", SONVIA_VERSION_STRING}});
}

void Conversation::take(const std::string& line) {
    ++mLines;
    if (line.empty()) {
        return;
    }
    Json call;
    try {
        call = Json::parse(line);
    } catch (const Json::parse_error& error) {
        report("not JSON", error.byte, reasonOf(error));
        return;
    }
    if (!call.is_object() || !call.contains("call") || !call["call"].is_string()) {
        report("not a call", 1, "a line is an object with a text named call");
        return;
    }
    Json reply = {{"reply", call["call"]}};
    if (const auto id = call.find("id"); id != call.end() && id->is_primitive()) {
        reply["id"] = *id;
    }
    try {
        reply["result"] = perform(call);
    } catch (const std::system_error& error) {
        const bool ours = error.code().category() == sonvia::category();
        reply["failure"] = ours ? nameOf(static_cast<sonvia::Failure>(error.code().value())) : "system";
        reply["message"] = error.code().message();
    } catch (const BadCall& error) {
        reply["failure"] = "badCall";
        reply["message"] = error.what();
    }
    write(reply);
}

void Conversation::close() {
    mSession.close();
}

Json Conversation::perform(const Json& call) {
    const std::string name = call["call"].get<std::string>();
    if (name == "initSonviaAudioService") {
        return init(call);
    }
    if (name == "setParam") {
        return setParam(call);
    }
    if (name == "setAccountID") {
        return setAccountID(call);
    }
    if (name == "exitAudioProjection") {
        check(mSession.exitProjection());
        return true;
    }
    if (name == "getState") {
        return mSession.state();
    }
    if (name == "getSourceName") {
        return mSession.phone();
    }
    if (name == "getVersion") {
        return mLibrary.version();
    }
    if (name == "uninitSonviaAudioService") {
        check(mSession.close());
        return true;
    }
    throw BadCall("there is no such call");
}

Json Conversation::init(const Json& call) {
    sonvia::Options options;
    options.logFolder = textOf(call, "logDir");
    options.level = levelOf(call);
    options.connectTime = mConnectTime;
    sonvia::Handlers handlers;
    handlers.onEvent = [this](const sonvia::Event& event) {
        write(
            {{"event", nameOf(event.kind)}, {"code", static_cast<int>(event.kind)}, {"value", event.value}});
    };
    handlers.onError = [this](const sonvia::Error& error) {
        write({{"error", nameOf(error.kind)},
               {"code", static_cast<int>(error.kind)},
               {"value", error.value},
               {"message", textOf(error.kind)}});
    };
    check(mSession.open(mLibrary, options, std::move(handlers)));
    mIdentity = {};
    return true;
}

Json Conversation::setParam(const Json& call) {
    sonvia::Identity identity = mIdentity;
    forEachText(identity, [&](const char* name, std::string& text) {
        if (call.contains(name)) {
            text = textOf(call, name);
        }
    });
    check(mSession.connect(identity));
    mIdentity = std::move(identity);
    return true;
}

Json Conversation::setAccountID(const Json& call) {
    const std::string account = textOf(call, "accountID");
    check(mSession.setAccount(account));
    mIdentity.accountID = account;
    return true;
}

void Conversation::report(const char* reason, std::size_t position, const std::string& message) {
    write({{"problem", reason}, {"line", mLines}, {"position", position}, {"message", message}});
}

// The phone's name comes from outside and need not be UTF-8.
void Conversation::write(const Json& line) {
    mOutput.write(line.dump(-1, ' ', false, Json::error_handler_t::replace));
}

} // namespace host
