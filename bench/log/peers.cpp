#include "subjects.h"

#include <filesystem>

#include <spdlog/async.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

#ifdef SONVIA_BENCH_GLOG
#include <glog/logging.h>
#endif

namespace {

constexpr std::size_t kFileSize = 2 * 1024 * 1024;
constexpr std::size_t kMaxFiles = 1000;
constexpr char kPattern[] = "%m-%d %H:%M:%S.%e [bench] [%t] %l Sonvia_PCAudioMessage: %v";

std::shared_ptr<spdlog::sinks::rotating_file_sink_mt> fileSink(const std::string& folder) {
    return std::make_shared<spdlog::sinks::rotating_file_sink_mt>(folder + "/peer.log", kFileSize, kMaxFiles);
}

/// Fed by snprintf, as a program with printf-style lines has to.
void feed(spdlog::logger& logger, Line line, int number) {
    char message[4096];
    const int length = formatMessage(message, sizeof message, line, number);
    logger.log(spdlog::source_loc{}, spdlog::level::info,
               spdlog::string_view_t(message, static_cast<std::size_t>(length)));
}

class SpdlogAsync final : public Subject {
public:
    explicit SpdlogAsync(const std::string& folder)
        : mPool(std::make_shared<spdlog::details::thread_pool>(8192, 1)),
          mLogger(std::make_shared<spdlog::async_logger>("bench", fileSink(folder), mPool,
                                                         spdlog::async_overflow_policy::block)) {
        mLogger->set_pattern(kPattern);
    }

    void write(Line line, int number) override { feed(*mLogger, line, number); }

    /// The pool's destructor writes all that waits; the sink's closes the file.
    void drain() override {
        mPool.reset();
        mLogger->sinks()[0]->flush();
    }

private:
    std::shared_ptr<spdlog::details::thread_pool> mPool;
    std::shared_ptr<spdlog::async_logger> mLogger;
};

class SpdlogSync final : public Subject {
public:
    explicit SpdlogSync(const std::string& folder) : mLogger("bench", fileSink(folder)) {
        mLogger.set_pattern(kPattern);
    }

    void write(Line line, int number) override { feed(mLogger, line, number); }

    void drain() override { mLogger.flush(); }

private:
    spdlog::logger mLogger;
};

#ifdef SONVIA_BENCH_GLOG
/// Keeps one file open until it is full or has another destination.
class Glog final : public Subject {
public:
    explicit Glog(const std::string& folder) {
        static bool once = [] {
            google::InitGoogleLogging("bench");
            return true;
        }();
        (void)once;
        FLAGS_logtostderr = false;
        FLAGS_alsologtostderr = false;
        FLAGS_stderrthreshold = google::GLOG_FATAL;
        FLAGS_logbuflevel = google::GLOG_INFO;
        FLAGS_max_log_size = 1000; // MB
        google::SetLogDestination(google::GLOG_INFO, (folder + "/glog.").c_str());
    }

    void write(Line line, int number) override {
        char message[4096];
        formatMessage(message, sizeof message, line, number);
        LOG(INFO) << message;
    }

    void drain() override { google::FlushLogFiles(google::GLOG_INFO); }
};
#endif

} // namespace

std::unique_ptr<Subject> makeSpdlogAsync(const std::string& folder) {
    return std::make_unique<SpdlogAsync>(folder);
}

std::unique_ptr<Subject> makeSpdlogSync(const std::string& folder) {
    return std::make_unique<SpdlogSync>(folder);
}

#ifdef SONVIA_BENCH_GLOG
std::unique_ptr<Subject> makeGlog(const std::string& folder) {
    return std::make_unique<Glog>(folder);
}
#endif
