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

void CActiveAviFile::WriteItem(WriteFrame* item) {
    lastWritten_[item->stream] += 1;
    // A failed write is not reported anywhere: the export goes on and the file keeps what was written.
    WriteChunk(item->stream, item->payload, item->size, true);
    Discard(item);
}

std::uint32_t CActiveAviFile::ItemLoop() {
    for (;;) {
        WriteFrame* item = Pop();
        if (!item)
            return 0;
        Hold hold(fileLock_);
        try {
            const std::uint32_t stream = item->stream;
            if (item->sequence == lastWritten_[stream] + 1)
                WriteItem(item);
            else
                held_[stream][item->sequence] = item;
            std::map<std::uint32_t, WriteFrame*>& waiting = held_[stream];
            while (!waiting.empty() && waiting.begin()->first == lastWritten_[stream] + 1) {
                WriteFrame* next = waiting.begin()->second;
                waiting.erase(waiting.begin());
                WriteItem(next);
            }
        } catch (const std::bad_alloc&) {
            // No room to hold the item back: it is dropped, as a failed write would be.
            Discard(item);
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
