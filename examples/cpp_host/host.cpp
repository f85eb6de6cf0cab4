// Shows what the service reports until a phone plays its first audio, then quits.
#include <SonviaPCAudio.hpp>

#include <future>
#include <iostream>

int main() {
    sonvia::Library library;
    sonvia::Session session;
    std::promise<void> firstAudio;
    sonvia::Handlers handlers;
    handlers.onEvent = [&](const sonvia::Event& event) { // on the library's thread: it returns soon
        std::cout << nameOf(event.kind) << " " << event.value << std::endl;
        if (event.kind == sonvia::EventKind::FirstAudio) {
            firstAudio.set_value();
        }
    };
    handlers.onError = [](const sonvia::Error& error) {
        std::cerr << textOf(error.kind) << " " << error.value << "\n";
    };
    sonvia::Identity identity;
    identity.pcName = "B\xC3\xBCro"; // UTF-8

    std::error_code failed = library.load(); // from the folder of this program
    failed = failed ? failed : session.open(library, {"C:\\ProgramData\\CppHost"}, handlers);
    failed = failed ? failed : session.connect(identity);
    if (failed) {
        std::cerr << failed.message() << "\n";
        return 1;
    }
    firstAudio.get_future().wait_for(std::chrono::minutes(1));
    std::cout << "phone " << session.phone() << ", state " << session.state() << "\n";
    session.close();
    std::cout << "closed\n";
    return 0;
}
