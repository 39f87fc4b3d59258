#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

namespace lumenar::film {

/// The bytes a queue should hold at most: its pusher stops taking from the download while Bytes()
/// has reached this, so the queue holds at most this plus what one take delivers (itself bounded the
/// same way by the download).
inline constexpr std::size_t kMaxQueuedBytes = 4u << 20;

/// One downloaded chunk: a private copy of the bytes the download delivered, or the mark that the
/// stream has ended whole (no bytes).
struct Chunk
{
    std::vector<std::uint8_t> bytes;
    bool endOfStream = false;
    std::int32_t Size() const { return static_cast<std::int32_t>(bytes.size()); }
};

/// The chunks that the download has delivered and the film loader has not consumed yet, oldest first.
///
/// One thread pushes (the control's thread, in its data callback) and one thread peeks and pops (the film
/// loader). Push, Pop and Clear must be called with Lock() held; Peek may be called without it by the
/// popping thread, and the chunk it returns stays valid until that thread pops it.
class ChunkQueue
{
public:
    ChunkQueue();
    ~ChunkQueue();
    ChunkQueue(const ChunkQueue&) = delete;
    ChunkQueue& operator=(const ChunkQueue&) = delete;

    /// Appends a copy of `bytes` at the tail. Lock() held.
    void Push(std::span<const std::uint8_t> bytes);
    /// Appends the mark that the stream has ended whole. Lock() held.
    void PushEndOfStream();
    /// The oldest chunk, or null when the queue is empty. Popping thread; no lock needed.
    const Chunk* Peek() const;
    /// Frees the oldest chunk; nothing happens when the queue is empty. Lock() held.
    void Pop();
    /// Frees every chunk. Lock() held.
    void Clear();
    /// Number of queued chunks. Lock() held.
    std::size_t Count() const { return count_; }
    /// Bytes held in queued chunks. Lock() held.
    std::size_t Bytes() const { return bytes_; }

    /// The queue lock: guards the links between chunks, the tail and the count.
    std::mutex& Lock() { return lock_; }

private:
    struct Node
    {
        Chunk chunk;
        std::unique_ptr<Node> owned;      // The next node; changed under the lock only.
        std::atomic<Node*> next{nullptr}; // The same node, published for Peek.
    };

    void Append(std::unique_ptr<Node> node);

    std::mutex lock_; // Guards the `owned` links, tail_, count_ and bytes_ (Push, Pop, Clear).
    Node head_;       // Sentinel: its chunk is never used.
    Node* tail_ = &head_;
    std::size_t count_ = 0;
    std::size_t bytes_ = 0;
};

} // namespace lumenar::film
