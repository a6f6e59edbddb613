// Tells clang which lock guards what, for its warnings -Wthread-safety. Other compilers see
// nothing.
#pragma once

#ifdef __clang__
#define ZX_THREAD_SAFETY(...) __attribute__((__VA_ARGS__))
#else
#define ZX_THREAD_SAFETY(...)
#endif

// A class whose objects are locks; `kind` is the word for them in warnings.
#define ZX_CAPABILITY(kind) ZX_THREAD_SAFETY(capability(kind))
// A class whose objects hold a lock until the end of a block.
#define ZX_SCOPED_CAPABILITY ZX_THREAD_SAFETY(scoped_lockable)

// A variable that may only be used while the lock is held.
#define ZX_GUARDED_BY(lock) ZX_THREAD_SAFETY(guarded_by(lock))

// A function whose caller holds the lock; one that takes it; one that gives it back.
#define ZX_REQUIRES(lock) ZX_THREAD_SAFETY(requires_capability(lock))
#define ZX_ACQUIRE(...)   ZX_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define ZX_RELEASE()      ZX_THREAD_SAFETY(release_capability())
// A function that is only called while the lock is held, where clang cannot see that.
#define ZX_ASSERT_HELD(lock) ZX_THREAD_SAFETY(assert_capability(lock))
// A function that returns the lock.
#define ZX_RETURNS_LOCK(lock) ZX_THREAD_SAFETY(lock_returned(lock))
