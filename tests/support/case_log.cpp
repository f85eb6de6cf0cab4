// Writes down each test case as it starts, fails and ends. GoogleTest writes its results when the program ends, so a
// program that hangs or crashes would not say in which case, and a capture of the output would keep the message.
//
// The environment says where and what to expect:
//   SONVIA_CASES    the file, in the folder that the program is started in; without it nothing is written
//   SONVIA_SUITES   the names of the program's suites, with colons between: there is a ctest entry for each
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace {

class CaseLog : public testing::EmptyTestEventListener {
public:
    void OnTestProgramStart(const testing::UnitTest& program) override {
        failWithoutEntry(program);
        if (program.test_to_run_count() == 0) {
            std::printf("No case of the filter is in this build\n"); // scripts/summary.py looks for it
        }
        if (const char* const file = std::getenv("SONVIA_CASES")) {
            mFile = std::filesystem::absolute(file).string(); // a test may change the current folder
            std::remove(mFile.c_str());
            write("program", std::to_string(program.test_to_run_count()));
        }
    }

    void OnTestStart(const testing::TestInfo& test) override { write("start", nameOf(test)); }

    void OnTestPartResult(const testing::TestPartResult& part) override {
        if (part.failed()) {
            const std::string place = part.file_name() == nullptr ? "" : part.file_name();
            write("failure", place + ":" + std::to_string(part.line_number()) + ": " + part.message());
        }
    }

    void OnTestEnd(const testing::TestInfo& test) override {
        const testing::TestResult& result = *test.result();
        write(result.Failed() ? "failed" : result.Skipped() ? "skipped" : "passed", nameOf(test));
    }

private:
    static std::string nameOf(const testing::TestInfo& test) {
        return std::string(test.test_suite_name()) + "." + test.name();
    }

    // "Prefix/Suite" and "Suite/0" are the suite's, as far as its entry goes.
    static bool isKnown(std::string_view known, std::string_view name) {
        while (!name.empty()) {
            const std::string_view part = name.substr(0, name.find('/'));
            if ((":" + std::string(known) + ":").find(":" + std::string(part) + ":") != std::string::npos) {
                return true;
            }
            name.remove_prefix(part.size() < name.size() ? part.size() + 1 : part.size());
        }
        return false;
    }

    static void failWithoutEntry(const testing::UnitTest& program) {
        const char* const known = std::getenv("SONVIA_SUITES");
        for (int i = 0; known != nullptr && i < program.total_test_suite_count(); ++i) {
            const char* const name = program.GetTestSuite(i)->name();
            if (!isKnown(known, name)) {
                std::printf(
                    "No ctest entry runs the suite %s: see sonvia_list_suites in cmake/SonviaTests.cmake\n",
                    name);
                std::fflush(stdout);
                std::_Exit(2);
            }
        }
    }

    // Opened for each line: tests look at the handles that their process has.
    void write(const char* what, const std::string& text) const {
        if (std::FILE* const file = mFile.empty() ? nullptr : std::fopen(mFile.c_str(), "ab")) {
            std::string line = text;
            for (std::size_t at = line.find('\n'); at != std::string::npos; at = line.find('\n', at + 2)) {
                line.replace(at, 1, "\n\t");
            }
            std::fprintf(file, "%s %s\n", what, line.c_str());
            std::fclose(file);
        }
    }

    std::string mFile;
};

// GoogleTest owns it.
[[maybe_unused]] const bool isListening =
    (testing::UnitTest::GetInstance()->listeners().Append(new CaseLog), true);

} // namespace
