#include "platform/InMemoryPictures.h"

#include <map>
#include <mutex>

namespace lumenar::platform {

namespace {

struct Registry
{
    std::mutex lock; // Guards blocks.
    std::map<std::uint64_t, std::shared_ptr<const std::vector<std::uint8_t>>> blocks;
};

Registry& TheRegistry()
{
    static Registry registry;
    return registry;
}

} // namespace

InMemoryPictureName RegisterInMemoryPicture(std::vector<std::uint8_t> bytes)
{
    auto block = std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes));
    // An empty vector has no storage of its own; its object address still names it uniquely.
    const auto address = block->empty() ? reinterpret_cast<std::uintptr_t>(block.get())
                                        : reinterpret_cast<std::uintptr_t>(block->data());
    const InMemoryPictureName name{block->size(), address};
    Registry& registry = TheRegistry();
    std::lock_guard guard(registry.lock);
    registry.blocks[name.address] = std::move(block);
    return name;
}

bool ReleaseInMemoryPicture(std::uint64_t address)
{
    Registry& registry = TheRegistry();
    std::lock_guard guard(registry.lock);
    return registry.blocks.erase(address) != 0;
}

std::shared_ptr<const std::vector<std::uint8_t>> FindInMemoryPicture(std::uint64_t length,
                                                                     std::uint64_t address)
{
    Registry& registry = TheRegistry();
    std::lock_guard guard(registry.lock);
    const auto found = registry.blocks.find(address);
    if (found == registry.blocks.end() || found->second->size() < length)
        return nullptr;
    return found->second;
}

} // namespace lumenar::platform
