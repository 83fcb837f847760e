// Waits for something another thread (the watcher, a relay) does. The limit only keeps a broken
// build from hanging; it is never a speed check.
#pragma once

#include <chrono>
#include <thread>

template <typename Predicate>
bool waitUntil(Predicate predicate, std::chrono::seconds limit = std::chrono::seconds(20))
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!predicate()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}
