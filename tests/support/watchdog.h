#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

// Ends the whole test program with a message when the scope it guards does not finish
// in time, so that a read which blocks forever fails the test instead of freezing it.
//
//     { Watchdog guard("reading a FIFO"); fileio::read(fifo, request); }
class Watchdog
{
public:
    explicit Watchdog(const char *what, int seconds = 10)
        : m_thread([this, what, seconds] {
            std::unique_lock<std::mutex> lock(m_mutex);
            if (!m_finished.wait_for(lock, std::chrono::seconds(seconds),
                                     [this] { return m_done; })) {
                std::fprintf(stderr, "FAIL! %s did not finish within %d s\n", what, seconds);
                std::fflush(stderr);
                std::_Exit(3);
            }
        })
    {
    }

    ~Watchdog()
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_done = true;
        }
        m_finished.notify_one();
        m_thread.join();
    }

    Watchdog(const Watchdog &) = delete;
    Watchdog &operator=(const Watchdog &) = delete;

private:
    std::mutex m_mutex;
    std::condition_variable m_finished;
    bool m_done = false;
    std::thread m_thread; // last: it starts once the members above exist
};
