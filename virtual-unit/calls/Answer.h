#ifndef VIRTUAL_UNIT_CALLS_ANSWER_H
#define VIRTUAL_UNIT_CALLS_ANSWER_H

#include <chrono>

namespace VirtualUnit
{

/// What the application gets for a system call that was held up.
struct Answer
{
    enum class Type
    {
        GoOn,       ///< the kernel carries the call out
        Result,     ///< `error`, or `value` when that is 0
        Descriptor, ///< `descriptor` is given to the application, and closed here
        Again,      ///< the call is looked at anew, `after` so long
        None        ///< the caller is gone
    };

    Type type = Type::GoOn;
    int error = 0;
    int value = 0; ///< what the call returns
    int descriptor = -1;
    bool closeOnExec = false;
    bool holdsWrites = false;           ///< it is placed where writes are held up, if there is room
    std::chrono::milliseconds after{0}; ///< so long after the call

    static Answer GoOn() { return {}; }

    static Answer Error(int error) { return {Type::Result, error}; }

    static Answer Success() { return {Type::Result}; }

    /// @param result what the call returns; below 0: a negated errno
    static Answer Returned(int result, std::chrono::milliseconds after)
    {
        Answer answer = result < 0 ? Error(-result) : Answer{Type::Result, 0, result};
        answer.after = after;
        return answer;
    }

    static Answer None() { return {Type::None}; }

    static Answer Opened(int descriptor, bool closeOnExec)
    {
        Answer answer{Type::Descriptor};
        answer.descriptor = descriptor;
        answer.closeOnExec = closeOnExec;
        return answer;
    }
};

}

#endif
