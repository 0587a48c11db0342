#ifndef VIRTUAL_UNIT_CALLS_INTERCEPTEDCALLS_H
#define VIRTUAL_UNIT_CALLS_INTERCEPTEDCALLS_H

#include <vector>

namespace VirtualUnit
{

/// A system call that the supervisor answers, and where its arguments stand.
struct InterceptedCall
{
    enum class Kind
    {
        Open,         ///< `argument`: the flags; the mode follows them
        OpenHow,      ///< `argument`: address of a struct open_how; its size follows
        Create,       ///< `argument`: the mode
        Access,       ///< `argument`: the mode
        Status,       ///< `argument`: address of the struct stat
        StatusX,      ///< `argument`: the mask; the address of the struct statx follows it
        VolumeStatus, ///< `argument`: address of the struct statfs
        ReadLink,
        Attribute,       ///< reads or changes extended attributes
        MakeDirectory,   ///< `argument`: the mode
        RemoveDirectory, ///< rmdir()
        Remove,          ///< `argument`: the flags, if it has any
        Rename,          ///< two paths; `argument`: the flags, if it has any
        Truncate,        ///< `argument`: the size
        ChangeMode,      ///< `argument`: the mode
        ChangeOwner,     ///< `argument`: the user; the group follows
        ChangeTimes,     ///< `argument`: address of two struct timespec
        MakeNode,        ///< a hard link, a symbolic link or a device node
        ChangeDirectory, ///< of the process
        Execute,
        Ioctl, ///< `argument`: the descriptor; the request and its argument follow
        // Those that may make a file grow. `argument`: the descriptor, FIRST_HELD_DESCRIPTOR or above
        Write,         ///< the address and the number of bytes follow
        WriteAt,       ///< the same, and behind them the place
        WriteVector,   ///< the address and the number of the pieces follow
        WriteVectorAt, ///< the same, and behind them the place
        Resize,        ///< the size follows
        Fill,          ///< room is reserved, or another file is copied
        Sync,          ///< `argument`: the descriptor
        SyncVolume,    ///< `argument`: the descriptor of a file on it, if not all are meant
        SyncMapping,   ///< `argument`: the address; the size and the flags follow
        Socket,        ///< the path stands in a socket's address, whose size follows
        Unmount,       ///< `argument`: the flags, if it has any
        Other,         ///< does something else with the file that the path names
        Forbidden      ///< never carried out, whatever its arguments
    };

    static constexpr int NONE = -1;

    /// Where a path stands among the arguments.
    struct NamedPath
    {
        int directory = NONE; ///< index of the descriptor that a relative path starts from
        int index = NONE;
    };

    bool MayGrowFile() const { return kind >= Kind::Write && kind <= Kind::Fill; }

    bool Syncs() const { return kind >= Kind::Sync && kind <= Kind::SyncMapping; }

    /// What a size or a place in a file takes among the arguments, on a 32-bit machine.
    enum class Size
    {
        Word,
        Pair,       ///< the lower half, and behind it the upper one
        AlignedPair ///< the same, where the machine has it begin at an even argument
    };

    const char* name;
    Kind kind;
    NamedPath path = {};
    int argument = NONE;
    NamedPath otherPath = {}; ///< of a call that names two
    Size size = Size::Word;
};

/// The system calls that the supervisor answers, in whichever way they reach it.
class InterceptedCalls
{
public:
    InterceptedCalls();

    const InterceptedCall* Find(int number) const; ///< null for a call that is not intercepted

    struct Numbered
    {
        int number; ///< of the system call, on this architecture
        const InterceptedCall* call;
    };

    const std::vector<Numbered>& All() const { return calls; }

private:
    std::vector<Numbered> calls;
};

}

#endif
