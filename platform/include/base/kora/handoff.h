// Work handed from one thread to another in order, a batch at a time, so
// that the two threads meet once per batch rather than once per item.
//
// The sending side fills batches and sends them; the receiving side takes
// them in the order sent and gives each one back when done with it, so
// that its storage is filled again rather than made anew. The sender waits
// while `depth` batches are waiting to be taken, which bounds the memory
// the two sides hold between them.
//
// The sender ends with finish(), with the exception that stopped it if one
// did: the receiver gets every batch sent before it, then the exception.
// A receiver that stops early closes the handoff, and the sender's next
// acquire() answers false.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <mutex>
#include <utility>
#include <vector>

namespace Kora {

template <class Batch>
class Handoff {
public:
    explicit Handoff(std::size_t depth = 4) : m_depth(depth) {}
    Handoff(const Handoff&) = delete;
    Handoff& operator=(const Handoff&) = delete;

    // Sender: a batch to fill (one given back, when there is one), once
    // there is room; false when the receiver has closed.
    bool acquire(Batch& batch)
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_closed || m_sent.size() < m_depth; });
        if (m_closed) return false;
        if (!m_given.empty()) {
            batch = std::move(m_given.back());
            m_given.pop_back();
        }
        return true;
    }
    void send(Batch&& batch)
    {
        {
            std::lock_guard lock(m_mutex);
            m_sent.push_back(std::move(batch));
        }
        m_changed.notify_all();
    }
    void finish(std::exception_ptr error = nullptr)
    {
        {
            std::lock_guard lock(m_mutex);
            m_finished = true;
            m_error = std::move(error);
        }
        m_changed.notify_all();
    }

    // Receiver: the next batch; false once the sender finished and every
    // batch was taken. Raises the sender's exception after its last batch.
    bool receive(Batch& batch)
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return !m_sent.empty() || m_finished; });
        if (m_sent.empty()) {
            if (m_error) std::rethrow_exception(m_error);
            return false;
        }
        batch = std::move(m_sent.front());
        m_sent.pop_front();
        lock.unlock();
        m_changed.notify_all();
        return true;
    }
    void giveBack(Batch&& batch)
    {
        std::lock_guard lock(m_mutex);
        m_given.push_back(std::move(batch));
    }
    void close()
    {
        {
            std::lock_guard lock(m_mutex);
            m_closed = true;
        }
        m_changed.notify_all();
    }

private:
    const std::size_t m_depth;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Batch> m_sent;
    std::vector<Batch> m_given;
    bool m_finished = false, m_closed = false;
    std::exception_ptr m_error;
};

}  // namespace Kora
