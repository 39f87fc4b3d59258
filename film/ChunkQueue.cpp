#include "film/ChunkQueue.h"

namespace lumenar::film {

ChunkQueue::ChunkQueue() = default;

ChunkQueue::~ChunkQueue()
{
    std::lock_guard guard(lock_);
    Clear();
}

void ChunkQueue::Push(std::span<const std::uint8_t> bytes)
{
    auto node = std::make_unique<Node>();
    node->chunk.bytes.assign(bytes.begin(), bytes.end());
    Append(std::move(node));
}

void ChunkQueue::PushEndOfStream()
{
    auto node = std::make_unique<Node>();
    node->chunk.endOfStream = true;
    Append(std::move(node));
}

void ChunkQueue::Append(std::unique_ptr<Node> node)
{
    bytes_ += node->chunk.bytes.size();
    Node* raw = node.get();
    tail_->owned = std::move(node);
    // Release: the copy is complete before the peeking thread can see the node.
    tail_->next.store(raw, std::memory_order_release);
    tail_ = raw;
    ++count_;
}

const Chunk* ChunkQueue::Peek() const
{
    const Node* first = head_.next.load(std::memory_order_acquire);
    return first ? &first->chunk : nullptr;
}

void ChunkQueue::Pop()
{
    std::unique_ptr<Node> first = std::move(head_.owned);
    if (!first)
        return;
    head_.owned = std::move(first->owned);
    head_.next.store(first->next.load(std::memory_order_relaxed), std::memory_order_release);
    if (tail_ == first.get())
        tail_ = &head_;
    --count_;
    bytes_ -= first->chunk.bytes.size();
}

void ChunkQueue::Clear()
{
    while (head_.owned)
        Pop();
}

} // namespace lumenar::film
