#include "commands/interrupt.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>

namespace zulconvert {

namespace {

// A handler may only touch what is async-signal-safe: fixed buffers, lock-free atomics, unlink
// and raise. A slot is claimed atomically (threads of one process guard files at once), filled,
// and only then marked in use.
constexpr int kSlots = 16;
constexpr size_t kPathBytes = 4096;
char partialPaths[kSlots][kPathBytes];
enum SlotState { kFree, kFilling, kInUse };
std::atomic<int> slotState[kSlots];
static_assert(std::atomic<int>::is_always_lock_free, "the handler reads the slots");

extern "C" void removePartialsAndDie(int signal) {
    for (int slot = 0; slot < kSlots; ++slot) {
        if (slotState[slot].load() == kInUse) ::unlink(partialPaths[slot]);
    }
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

}  // namespace

void installInterruptCleanup() {
    struct sigaction action = {};
    action.sa_handler = removePartialsAndDie;
    sigemptyset(&action.sa_mask);
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&action.sa_mask, signal);
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction previous = {};
        sigaction(signal, nullptr, &previous);
        // A signal ignored by the parent (nohup, a background job) stays ignored.
        if (previous.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);
    }
}

int guardPartialFile(const std::string& path) {
    if (path.size() >= kPathBytes) return -1;
    for (int slot = 0; slot < kSlots; ++slot) {
        int expected = kFree;
        if (!slotState[slot].compare_exchange_strong(expected, kFilling)) continue;
        std::memcpy(partialPaths[slot], path.c_str(), path.size() + 1);
        slotState[slot].store(kInUse);  // only now may the handler read the path
        return slot;
    }
    return -1;
}

void releasePartialFile(int slot) {
    if (slot >= 0 && slot < kSlots) slotState[slot].store(kFree);
}

}  // namespace zulconvert
