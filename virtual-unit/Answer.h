#ifndef VIRTUAL_UNIT_ANSWER_H
#define VIRTUAL_UNIT_ANSWER_H

namespace VirtualUnit
{

/// What the application gets for a system call that was held up.
struct Answer
{
    enum class Type
    {
        GoOn,       ///< the kernel carries the call out
        Result,     ///< `error`, 0 or an errno
        Descriptor, ///< `descriptor` is given to the application, and closed here
        None        ///< the caller is gone
    };

    Type type = Type::GoOn;
    int error = 0;
    int descriptor = -1;
    bool closeOnExec = false;

    static Answer GoOn() { return {}; }

    static Answer Error(int error) { return {Type::Result, error}; }

    static Answer Success() { return {Type::Result}; }

    static Answer None() { return {Type::None}; }

    static Answer Opened(int descriptor, bool closeOnExec)
    {
        return {Type::Descriptor, 0, descriptor, closeOnExec};
    }
};

}

#endif
