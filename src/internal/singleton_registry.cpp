/*
 * Process-wide registry of singletons: identifiers per type key, and one
 * slot per identifier holding the object and its deleter. One mutex guards
 * everything; it is constant-initialised, so it exists before any caller
 * and is never destroyed.
 */
#include "internal/singleton_registry.h"

#include <atomic>
#include <mutex>
#include <typeindex>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kt {
namespace internal {

namespace {

struct Slot {
    void* object;
    SingletonDeleter deleter;
};

/* Live: normal service. TearingDown: the deleters are running; lookups
   still work, nothing new is taken over. Gone: the registry object itself
   has been destroyed; nothing may touch it. */
enum RegistryState { Live, TearingDown, Gone };

std::mutex registry_mutex;
std::atomic<int> registry_state{Live};

struct Registry {
    std::unordered_map<std::type_index, SingletonId> ids;
    std::vector<Slot> slots;             /* slot of id n is slots[n - 1] */
    std::vector<SingletonId> insertions; /* ids in the order filled */

    ~Registry()
    {
        tear_down();
        registry_state.store(Gone);
    }

    /* Runs the deleters newest first, outside the lock: a deleter may use
       the registry (lookups then find only what is not yet destroyed). */
    void tear_down()
    {
        for (;;) {
            Slot slot = {nullptr, nullptr};
            {
                std::lock_guard<std::mutex> lock(registry_mutex);
                registry_state.store(TearingDown);
                if (insertions.empty())
                    return;
                SingletonId id = insertions.back();
                insertions.pop_back();
                std::swap(slot, slots[id - 1]);
            }
            if (slot.deleter && slot.object)
                slot.deleter(slot.object);
        }
    }
};

/* Built on first use; destroyed with the other statics at process end. */
Registry& registry()
{
    static Registry instance;
    return instance;
}

bool valid_id(const Registry& r, SingletonId id)
{
    return id != 0 && id <= r.slots.size();
}

}  // namespace

SingletonId singleton_id(const std::type_info& key)
{
    if (registry_state.load() == Gone)
        return 0;
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(registry_mutex);
    auto found = r.ids.find(std::type_index(key));
    if (found != r.ids.end())
        return found->second;
    r.slots.push_back(Slot{nullptr, nullptr});
    SingletonId id = r.slots.size();
    r.ids.emplace(std::type_index(key), id);
    return id;
}

void* singleton_find(SingletonId id)
{
    if (registry_state.load() == Gone)
        return nullptr;
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(registry_mutex);
    if (!valid_id(r, id))
        return nullptr;
    return r.slots[id - 1].object;
}

SingletonInsert singleton_find_or_insert(SingletonId id, void* object,
                                         SingletonDeleter deleter)
{
    /* Past teardown nothing is kept any more: the caller keeps its object
       as if registered, and the process exit reclaims it. */
    if (registry_state.load() != Live)
        return SingletonInsert{object, object != nullptr};
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(registry_mutex);
    if (registry_state.load() != Live)
        return SingletonInsert{object, object != nullptr};
    if (!valid_id(r, id))
        return SingletonInsert{nullptr, false};
    Slot& slot = r.slots[id - 1];
    if (slot.object || !object)
        return SingletonInsert{slot.object, false};
    slot.object = object;
    slot.deleter = deleter;
    r.insertions.push_back(id);
    return SingletonInsert{object, true};
}

}  // namespace internal
}  // namespace kt
