#include "commands/interrupt.h"

#include <unistd.h>

#include <csignal>
#include <cstring>

namespace zulconvert {

namespace {

// A handler may only touch what is async-signal-safe: fixed buffers and flags, unlink and raise.
constexpr int kSlots = 4;
constexpr size_t kPathBytes = 4096;
char partialPaths[kSlots][kPathBytes];
volatile std::sig_atomic_t slotInUse[kSlots];

extern "C" void removePartialsAndDie(int signal) {
    for (int slot = 0; slot < kSlots; ++slot) {
        if (slotInUse[slot]) ::unlink(partialPaths[slot]);
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
        if (slotInUse[slot]) continue;
        std::memcpy(partialPaths[slot], path.c_str(), path.size() + 1);
        slotInUse[slot] = 1;  // only now may the handler read the path
        return slot;
    }
    return -1;
}

void releasePartialFile(int slot) {
    if (slot >= 0 && slot < kSlots) slotInUse[slot] = 0;
}

}  // namespace zulconvert
