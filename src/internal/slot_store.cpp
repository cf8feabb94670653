// Per-context slot store: the default, virtual-machine and per-thread scopes.
#include "internal/slot_store.h"

namespace kt::internal {

SlotStore::~SlotStore() {
  // Later slots may refer to earlier ones: destroy newest first.
  for (auto it = slots_.rbegin(); it != slots_.rend(); ++it)
    it->destroy(it->value);
}

void* SlotStore::FindLocked(Key key) {
  for (const Slot& slot : slots_)
    if (slot.key == key)
      return slot.value;
  return nullptr;
}

void* SlotStore::FindRaw(Key key) {
  std::lock_guard<std::mutex> lock(mutex_);
  return FindLocked(key);
}

void SlotStore::AddLocked(Key key, void* value, Deleter destroy) {
  slots_.push_back(Slot{key, value, destroy});
}

void SlotStore::ReplaceRaw(Key key, void* value, Deleter destroy) {
  Slot old{nullptr, nullptr, nullptr};
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (Slot& slot : slots_)
      if (slot.key == key) {
        old = slot;
        slot.value = value;
        slot.destroy = destroy;
        break;
      }
    if (old.value == nullptr)
      AddLocked(key, value, destroy);
  }
  if (old.value != nullptr)
    old.destroy(old.value);  // outside the lock: it may use the store
}

size_t SlotStore::Size() {
  std::lock_guard<std::mutex> lock(mutex_);
  return slots_.size();
}

namespace {

std::vector<VmContext*>& ActiveContexts() {
  thread_local std::vector<VmContext*> active;
  return active;
}

}  // namespace

void EnterVmContext(VmContext* context) { ActiveContexts().push_back(context); }

void LeaveVmContext() {
  auto& active = ActiveContexts();
  if (!active.empty())
    active.pop_back();
}

bool RequiredContextActive() {
  auto& active = ActiveContexts();
  return !active.empty() && active.back() != nullptr;
}

SlotStore& DefaultContextStore() {
  // Never destroyed: slots may be used by exit-time functions of other
  // components, whose order against this store's destruction is unknown.
  static SlotStore* store = new SlotStore;
  return *store;
}

SlotStore& CurrentContextStore() {
  return RequiredContextActive() ? ActiveContexts().back()->store() : DefaultContextStore();
}

SlotStore& ThisThreadStore() {
  thread_local SlotStore store;
  return store;
}

}  // namespace kt::internal
