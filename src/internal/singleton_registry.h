/*
 * Process-wide registry of singletons.
 *
 * A process singleton (the system logger, and later other per-process
 * services) is kept under an identifier allocated for its type key:
 *
 *     static const SingletonId id = singleton_id(typeid(MyKey));
 *     void* found = singleton_find(id);
 *     if (!found) {
 *         Thing* fresh = new Thing;
 *         SingletonInsert r = singleton_find_or_insert(id, fresh, &destroy_thing);
 *         if (!r.inserted) delete fresh;      // another thread won the race
 *         found = r.object;
 *     }
 *
 * Registered objects are destroyed at process end (static destruction), by
 * their deleters, newest first; the deleters run without the registry lock
 * held, so a deleter may look up other singletons (it finds those not yet
 * destroyed). Once teardown has begun, find-or-insert hands the object
 * back as inserted without taking it over, so a late caller keeps working
 * and the object is simply left to the process's exit; once it has ended,
 * lookups find nothing.
 *
 * All functions are thread-safe; none is async-signal-safe.
 */
#ifndef KT_INTERNAL_SINGLETON_REGISTRY_H
#define KT_INTERNAL_SINGLETON_REGISTRY_H

#include <cstddef>
#include <typeinfo>

namespace kt {
namespace internal {

/* 0 is never a valid identifier. */
typedef std::size_t SingletonId;
typedef void (*SingletonDeleter)(void* object);

struct SingletonInsert {
    void* object;    /* the registered object */
    bool inserted;   /* true when that is the object just offered */
};

/* The identifier of `key`: allocated on the first call for that type, the
   same on every later call from any thread. 0 once the registry is gone. */
SingletonId singleton_id(const std::type_info& key);

/* The object registered under `id`, or null (also for unknown or 0 ids). */
void* singleton_find(SingletonId id);

/*
 * Registers `object` with `deleter` under `id` unless an object is already
 * registered there; returns the registered object and whether it is
 * `object`. When it is not, the caller still owns `object`. A null object,
 * or an id that was never allocated, registers nothing: the result is
 * {null, false} (or the existing object for a null offer).
 */
SingletonInsert singleton_find_or_insert(SingletonId id, void* object,
                                         SingletonDeleter deleter);

}  // namespace internal
}  // namespace kt

#endif /* KT_INTERNAL_SINGLETON_REGISTRY_H */
