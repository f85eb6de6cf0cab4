// What a host keeps that survives the fault of memory which it handed over and which cannot be read.

#include "SonviaPCAudioDll.h"
#include "support/api/api_support.h"

#include <gtest/gtest.h>

#include <csetjmp>
#include <csignal>
#include <sys/mman.h>

using namespace support;

namespace {

sigjmp_buf afterFault;

void onFault(int /*signal*/) {
    siglongjmp(afterFault, 1);
}

class UnreadableMemory : public testing::Test {
protected:
    UnreadableMemory() {
        struct sigaction action = {};
        action.sa_handler = onFault;
        sigaction(SIGSEGV, &action, &mBefore);
    }

    ~UnreadableMemory() override {
        sigaction(SIGSEGV, &mBefore, nullptr);
        munmap(memory, sizeof(AudioServiceParam));
    }

    template <typename Call>
    static bool faults(Call call) {
        if (sigsetjmp(afterFault, 1) != 0) {
            return true;
        }
        call();
        return false;
    }

    DirectHandle direct;
    void* const memory =
        mmap(nullptr, sizeof(AudioServiceParam), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);

private:
    struct sigaction mBefore = {};
};

} // namespace

TEST_F(UnreadableMemory, ARecordThatFaultsKeepsNoLockAndNoHandleInUse) {
    EXPECT_TRUE(faults([this] { setParam(direct.handle, static_cast<const AudioServiceParam*>(memory)); }));
    const AudioServiceParam empty = {};
    EXPECT_FALSE(setParam(direct.handle, &empty)) << "it returns";
    EXPECT_TRUE(uninitSonviaAudioService(direct.handle));
}

TEST_F(UnreadableMemory, AnAccountThatFaultsKeepsNoLockAndNoHandleInUse) {
    EXPECT_TRUE(faults([this] { setAccountID(direct.handle, static_cast<const char*>(memory)); }));
    EXPECT_TRUE(setAccountID(direct.handle, "someone"));
    EXPECT_TRUE(uninitSonviaAudioService(direct.handle));
}
