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

bool VmContext::StartSession() {
  std::lock_guard<std::mutex> lock(sessionMutex_);
  if (session_ != nullptr)
    return false;
  session_ = std::make_unique<SlotStore>();
  return true;
}

bool VmContext::EndSession() {
  std::unique_ptr<SlotStore> ended;
  {
    std::lock_guard<std::mutex> lock(sessionMutex_);
    ended = std::move(session_);
  }
  return ended != nullptr;  // its slots are destroyed outside the lock
}

SlotStore* VmContext::SessionStore() {
  std::lock_guard<std::mutex> lock(sessionMutex_);
  return session_.get();
}

// This thread's open entries, innermost last. A thread that ends inside
// contexts gives their entries back, so that they can still be deleted.
struct ActiveList {
  std::vector<VmContext*> entered;
  ~ActiveList() {
    for (VmContext* context : entered)
      if (context != nullptr)
        context->entries_.fetch_sub(1, std::memory_order_acq_rel);
  }
};

namespace {

ActiveList& ThisThreadActiveList() {
  thread_local ActiveList active;
  return active;
}

std::vector<VmContext*>& ActiveContexts() { return ThisThreadActiveList().entered; }

}  // namespace

void EnterVmContext(VmContext* context) {
  if (context != nullptr)
    context->entries_.fetch_add(1, std::memory_order_acq_rel);
  ActiveList& active = ThisThreadActiveList();
  active.entered.push_back(context);
  ++tThisThreadContextEpoch;
}

void LeaveVmContext() {
  ActiveList& active = ThisThreadActiveList();
  if (active.entered.empty())
    return;
  if (active.entered.back() != nullptr)
    active.entered.back()->entries_.fetch_sub(1, std::memory_order_acq_rel);
  active.entered.pop_back();
  ++tThisThreadContextEpoch;
}

// Trivial, so that reading it runs no constructor (signal handlers do).
__thread uint64_t tThisThreadContextEpoch __attribute__((tls_model("initial-exec"))) = 0;

VmContext* CurrentVmContext() {
  auto& active = ActiveContexts();
  return active.empty() ? nullptr : active.back();
}

bool RequiredContextActive() { return CurrentVmContext() != nullptr; }

SlotStore* CurrentSessionStore() {
  VmContext* context = CurrentVmContext();
  return context == nullptr ? nullptr : context->SessionStore();
}

SlotStore& DefaultContextStore() {
  // Never destroyed: slots may be used by exit-time functions of other
  // components, whose order against this store's destruction is unknown.
  static SlotStore* store = new SlotStore;
  return *store;
}

SlotStore& CurrentContextStore() {
  VmContext* context = CurrentVmContext();
  return context != nullptr ? context->store() : DefaultContextStore();
}

SlotStore& ThisThreadStore() {
  thread_local SlotStore store;
  return store;
}

}  // namespace kt::internal
