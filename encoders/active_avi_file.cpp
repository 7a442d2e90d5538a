#include "encoders/active_avi_file.h"

#include "encoders/aligned_buffer_pool.h"
#include "platform/sleep.h"

#include <new>

namespace {

using Hold = QVN::CAutoLock<QVN::CW32CriticalSection>;

void Discard(WriteFrame* item) {
    if (item->pool)
        item->pool->Release(item->payload);
    delete item;
}

} // namespace

CActiveAviFile::~CActiveAviFile() {
    if (ThreadCount() > 0 || IsOpen())
        Shutdown();
}

void CActiveAviFile::WriteItem(WriteFrame* item, std::uint32_t& lastWritten) {
    // A failed write is not reported anywhere: the export goes on and the file keeps what was written. An
    // index with no room left is another matter: nothing was written, and the item is lost.
    if (WriteChunk(item->stream, item->payload, item->size, true) == E_OUTOFMEMORY)
        lost_.store(true);
    else
        lastWritten += 1;
    Discard(item);
}

void CActiveAviFile::Take(WriteFrame* item) {
    // After a lost item every later one is dropped at once: written, it would land a place early, and
    // held, it would keep its payload until the end of the export.
    if (lost_.load()) {
        Discard(item);
        return;
    }
    // Both tables' entries exist before the item is written or held, so that nothing can throw once it is.
    std::uint32_t& last = lastWritten_[item->stream];
    std::map<std::uint32_t, WriteFrame*>& waiting = held_[item->stream];
    if (item->sequence == last + 1) {
        WriteItem(item, last);
    } else if (!waiting.emplace(item->sequence, item).second) {
        Discard(item); // a sequence number seen twice: the first one stays
    }
    while (!lost_.load() && !waiting.empty() && waiting.begin()->first == last + 1) {
        WriteFrame* next = waiting.begin()->second;
        waiting.erase(waiting.begin());
        WriteItem(next, last);
    }
}

std::uint32_t CActiveAviFile::ItemLoop() {
    for (;;) {
        WriteFrame* item = Pop();
        if (!item)
            return 0;
        Hold hold(fileLock_);
        try {
            Take(item);
        } catch (...) { // nothing leaves the writer thread; Take throws before the item is written or held
            // Dropped, and remembered: the stream now has a gap that no later item fills.
            Discard(item);
            lost_.store(true);
        }
    }
}

HRESULT CActiveAviFile::Shutdown() {
    const std::uint32_t threads = ThreadCount();
    for (std::uint32_t i = 0; i < threads; ++i) {
        while (!Push(nullptr))
            QVN::SleepMs(5);
    }
    Join();
    {
        Hold hold(fileLock_);
        for (auto& [stream, items] : held_) {
            for (auto& [sequence, item] : items)
                Discard(item);
        }
        held_.clear();
        lastWritten_.clear();
    }
    return Close();
}

std::uint32_t CActiveAviFile::LastWritten(std::uint32_t stream) {
    Hold hold(fileLock_);
    const auto it = lastWritten_.find(stream);
    return it == lastWritten_.end() ? 0 : it->second;
}

std::size_t CActiveAviFile::HeldCount() {
    Hold hold(fileLock_);
    std::size_t count = 0;
    for (const auto& [stream, items] : held_)
        count += items.size();
    return count;
}
