// An AVIFile with its own writer thread: producers queue WriteFrame items, the thread writes each stream's
// chunks strictly in sequence order, holding back items that arrive ahead of their turn.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>

#include "encoders/avi_file.h"
#include "encoders/task.h"
#include "encoders/write_frame.h"
#include "platform/critical_section.h"

class CActiveAviFile : public AVIFile,
                       public QVN::CTask<WriteFrame*, QVN::CNullDestroyer, QVN::CW32CriticalSection> {
public:
    CActiveAviFile() = default;
    ~CActiveAviFile() override; // shuts a running writer down

    std::uint32_t ItemLoop() override;
    // Starts the one writer thread of a new file, with no item lost yet.
    bool StartWriter() {
        lost_.store(false);
        return Start(1);
    }
    // Stops every writer thread behind the items already queued, drops held items, closes the file.
    HRESULT Shutdown();
    // The sequence number of the last item written for a stream (0 before the first), under the file lock.
    std::uint32_t LastWritten(std::uint32_t stream);
    // True when the writer had to drop an item for lack of memory since StartWriter; from then on it drops
    // every item (the file keeps what came before the gap). Still true after Shutdown. Read without a lock.
    bool LostItems() const { return lost_.load(); }
    // Items held back because an earlier sequence number has not arrived yet.
    std::size_t HeldCount();
    // Held by the writer thread for the whole write of an item.
    QVN::CW32CriticalSection& FileLock() { return fileLock_; }

private:
    // File lock held for both. Take writes the item or holds it back, and throws only before either.
    void Take(WriteFrame* item);
    void WriteItem(WriteFrame* item, std::uint32_t& lastWritten);

    QVN::CW32CriticalSection fileLock_;
    std::map<std::uint32_t, std::map<std::uint32_t, WriteFrame*>> held_;
    std::map<std::uint32_t, std::uint32_t> lastWritten_;
    std::atomic<bool> lost_{false};
};
