// Per-context slot store: typed state that belongs to one running product
// context (the current warning manager, the interrupt state, the signal
// thread record, saved counters...).
//
// Three scopes exist:
//   - the default context, one per process;
//   - one store per virtual-machine context, active on a thread between
//     EnterVmContext and LeaveVmContext (nestable);
//   - one store per thread.
// CurrentContextStore() is the innermost active virtual-machine context's
// store on this thread, or the default one when none is active.
//
// Slots are keyed by type: Find<T>, FindOrInsert<T>, Insert<T>. A slot
// lives until its store is destroyed (process end, thread end, or the end
// of the VmContext), and its address is stable until then. Stores lock
// internally; the values they hold do their own synchronisation.
#ifndef KT_INTERNAL_SLOT_STORE_H
#define KT_INTERNAL_SLOT_STORE_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace kt::internal {

class SlotStore {
public:
  SlotStore() = default;
  ~SlotStore();
  SlotStore(const SlotStore&) = delete;
  SlotStore& operator=(const SlotStore&) = delete;

  // The slot of type T, or null when there is none.
  template <class T>
  T* Find() {
    return static_cast<T*>(FindRaw(KeyOf<T>()));
  }

  // The slot of type T, constructed from `args` if there is none yet. The
  // construction runs under the store's lock: T's constructor must not use
  // the same store.
  template <class T, class... Args>
  T& FindOrInsert(Args&&... args) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (void* found = FindLocked(KeyOf<T>()))
      return *static_cast<T*>(found);
    T* made = new T(std::forward<Args>(args)...);
    AddLocked(KeyOf<T>(), made, &Destroy<T>);
    return *made;
  }

  // A new slot of type T, replacing (and destroying) any existing one.
  template <class T, class... Args>
  T& Insert(Args&&... args) {
    T* made = new T(std::forward<Args>(args)...);
    ReplaceRaw(KeyOf<T>(), made, &Destroy<T>);
    return *made;
  }

  // Number of slots, for tests and diagnostics.
  size_t Size();

private:
  using Key = const void*;
  using Deleter = void (*)(void*);
  struct Slot {
    Key key;
    void* value;
    Deleter destroy;
  };

  template <class T>
  static Key KeyOf() {
    static const char tag = 0;
    return &tag;
  }
  template <class T>
  static void Destroy(void* value) {
    delete static_cast<T*>(value);
  }

  void* FindRaw(Key key);
  void* FindLocked(Key key);
  void AddLocked(Key key, void* value, Deleter destroy);
  void ReplaceRaw(Key key, void* value, Deleter destroy);

  std::mutex mutex_;
  std::vector<Slot> slots_;
};

// A virtual-machine context: owns the store that its threads see as
// current while they are inside it, and the store of its running session.
class VmContext {
public:
  SlotStore& store() { return store_; }

  // A session's state lives from StartSession to EndSession; at most one
  // runs at a time. Both return false when there is none to start or end.
  // The host ends a session only when no thread still uses its state.
  bool StartSession();
  bool EndSession();
  // The running session's store, or null.
  SlotStore* SessionStore();

  // How many entries (on all threads) are still open.
  int Entries() const { return entries_.load(std::memory_order_acquire); }

private:
  friend void EnterVmContext(VmContext*);
  friend void LeaveVmContext();
  friend struct ActiveList;

  SlotStore store_;
  std::mutex sessionMutex_;
  std::unique_ptr<SlotStore> session_;
  std::atomic<int> entries_{0};
};

// Makes `context` the current context of this thread until the matching
// LeaveVmContext. Entries nest; leaving restores the previous one. A
// thread that ends inside contexts leaves them as it ends.
void EnterVmContext(VmContext* context);
void LeaveVmContext();

// The innermost context this thread is inside, or null.
VmContext* CurrentVmContext();

// A number that changes on every enter and leave of this thread (never
// repeating): state looked up in the current context's store may be cached
// per thread for as long as the epoch stays the same. A plain per-thread
// word, inline: hot paths read it on every call. It lives in the static TLS
// block (initial-exec), where a read is one instruction instead of a call
// to __tls_get_addr; the library keeps only a few such words, well inside
// the reserve the loader keeps for libraries opened with dlopen.
// (__thread rather than thread_local: it never needs a dynamic
// initialiser, so readers in other files skip the wrapper check.)
extern __thread uint64_t tThisThreadContextEpoch __attribute__((tls_model("initial-exec")));
inline uint64_t ThisThreadContextEpoch() { return tThisThreadContextEpoch; }

// Enters a context for the lifetime of the guard.
class VmContextScope {
public:
  explicit VmContextScope(VmContext* context) { EnterVmContext(context); }
  ~VmContextScope() { LeaveVmContext(); }
  VmContextScope(const VmContextScope&) = delete;
  VmContextScope& operator=(const VmContextScope&) = delete;
};

// True while this thread is inside a virtual-machine context: the context
// that per-thread product state (warning-log factories and the like)
// requires.
bool RequiredContextActive();

// The store of the session of the innermost context, or null when this
// thread is in no context or its context runs no session.
SlotStore* CurrentSessionStore();

SlotStore& DefaultContextStore();
SlotStore& CurrentContextStore();
SlotStore& ThisThreadStore();

}  // namespace kt::internal

#endif  // KT_INTERNAL_SLOT_STORE_H
