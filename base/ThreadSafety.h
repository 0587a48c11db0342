#ifndef BASE_THREADSAFETY_H
#define BASE_THREADSAFETY_H

// Which lock guards what, for clang's -Wthread-safety, which then sees at compile time that none is
// forgotten (tools/static). Nothing for other compilers, and for applications.

#if defined(__clang__) && defined(TAVDEVICE_THREAD_SAFETY)
#define TAV_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define TAV_THREAD_SAFETY(attribute)
#endif

/// A type, before its name: a lock, also by another name of a type that is none to clang.
#define TAV_LOCK TAV_THREAD_SAFETY(capability("mutex"))

/// A class, before its name: it holds a lock from its constructor, which says TAV_TAKES, to its destructor,
/// which says TAV_GIVES_BACK.
#define TAV_LOCK_HOLDER TAV_THREAD_SAFETY(scoped_lockable)
#define TAV_TAKES(lock) TAV_THREAD_SAFETY(acquire_capability(lock))
#define TAV_GIVES_BACK TAV_THREAD_SAFETY(release_capability())

/// A member, after its name: read and written only with the lock held.
#define TAV_GUARDED_BY(lock) TAV_THREAD_SAFETY(guarded_by(lock))

/// A pointer, after its name: so is what it points to.
#define TAV_POINTEE_GUARDED_BY(lock) TAV_THREAD_SAFETY(pt_guarded_by(lock))

/// An operation or a lambda, after its parameters: called only with the lock held.
#define TAV_REQUIRES(lock) TAV_THREAD_SAFETY(requires_capability(lock))

/// An operation, after its parameters: what it does with locks cannot be followed.
#define TAV_LOCKS_UNSEEN TAV_THREAD_SAFETY(no_thread_safety_analysis)

#endif
