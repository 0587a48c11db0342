// For tools/static alone, included before anything else: the locks of <mutex> and <condition_variable>,
// declared once more with what clang's -Wthread-safety has to know of them, in place of the standard
// library's, which does not tell.

#define mutex plain_mutex
#define timed_mutex plain_timed_mutex
#define recursive_mutex plain_recursive_mutex
#define lock_guard plain_lock_guard
#define scoped_lock plain_scoped_lock
#define unique_lock plain_unique_lock
#define condition_variable plain_condition_variable
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <stop_token>
#include <thread>
// The headers of which these locks are a part.
#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <iostream>
#include <list>
#include <locale>
#include <map>
#include <random>
#include <regex>
#include <sstream>
#undef mutex
#undef timed_mutex
#undef recursive_mutex
#undef lock_guard
#undef scoped_lock
#undef unique_lock
#undef condition_variable

namespace std
{

#define IS(attribute) __attribute__((attribute))

class IS(capability("mutex")) mutex
{
public:
    constexpr mutex() noexcept = default;
    mutex(const mutex&) = delete;
    mutex& operator=(const mutex&) = delete;

    void lock() IS(acquire_capability());
    bool try_lock() IS(try_acquire_capability(true));
    void unlock() IS(release_capability());
};

class IS(capability("mutex")) recursive_mutex
{
public:
    recursive_mutex() = default;
    recursive_mutex(const recursive_mutex&) = delete;
    recursive_mutex& operator=(const recursive_mutex&) = delete;

    void lock() IS(acquire_capability());
    bool try_lock() IS(try_acquire_capability(true));
    void unlock() IS(release_capability());
};

template <class Mutex>
class IS(scoped_lockable) lock_guard
{
public:
    explicit lock_guard(Mutex& which) IS(acquire_capability(which));
    lock_guard(const lock_guard&) = delete;
    lock_guard& operator=(const lock_guard&) = delete;
    ~lock_guard() IS(release_capability());
};

template <class Mutex, class Other = Mutex>
class IS(scoped_lockable) scoped_lock
{
public:
    explicit scoped_lock(Mutex& which) IS(acquire_capability(which));
    scoped_lock(Mutex& one, Other& other) IS(acquire_capability(one, other));
    scoped_lock(adopt_lock_t, Mutex& which) IS(acquire_capability(which)); // whoever has taken it
    scoped_lock(const scoped_lock&) = delete;
    scoped_lock& operator=(const scoped_lock&) = delete;
    ~scoped_lock() IS(release_capability());
};

template <class Mutex>
class IS(scoped_lockable) unique_lock
{
public:
    explicit unique_lock(Mutex& which) IS(acquire_capability(which));
    unique_lock(Mutex& which, try_to_lock_t)
        IS(acquire_capability(which)); // looked at by owns_lock(), not here
    unique_lock(const unique_lock&) = delete;
    unique_lock& operator=(const unique_lock&) = delete;
    ~unique_lock() IS(release_capability());

    void lock() IS(acquire_capability());
    void unlock() IS(release_capability());
    bool owns_lock() const;
};

class condition_variable
{
public:
    void notify_one();
    void notify_all();
    void wait(unique_lock<mutex>& lock);

    template <class Predicate>
    void wait(unique_lock<mutex>& lock, Predicate predicate) IS(no_thread_safety_analysis)
    {
        predicate();
    }
    template <class Duration>
    cv_status wait_for(unique_lock<mutex>& lock, const Duration& duration);

    template <class Duration, class Predicate>
    bool wait_for(unique_lock<mutex>& lock, const Duration& duration, Predicate predicate)
        IS(no_thread_safety_analysis)
    {
        return predicate();
    }
    template <class Time>
    cv_status wait_until(unique_lock<mutex>& lock, const Time& time);

    template <class Time, class Predicate>
    bool wait_until(unique_lock<mutex>& lock, const Time& time, Predicate predicate)
        IS(no_thread_safety_analysis)
    {
        return predicate();
    }
};

#undef IS

}
