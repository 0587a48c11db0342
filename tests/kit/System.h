#ifndef TESTS_KIT_SYSTEM_H
#define TESTS_KIT_SYSTEM_H

#include <array>
#include <chrono>
#include <string>
#include <sys/types.h>
#include <termios.h>
#include <vector>

namespace Kit
{

/**
 * The system that the libraries see in a test: which paths lead where, what each call did, and which calls
 * are to fail. It concerns paths that were redirected and the descriptors opened through them; everything
 * else goes to the real system, but for the unit's own paths, which do not exist unless redirected.
 *
 * One test at a time; Reset() between tests is done by the kit.
 */
class System
{
public:
    /// A call that the kit has seen.
    struct Call
    {
        const char* function; ///< as in C: "open", "tcsetattr"
        std::string path;     ///< what was asked for; for a descriptor what it was opened by
        int fd;               ///< -1 when the call has none
        long argument; ///< open: flags; fcntl (duplications only): the command; tcflush: queue; usleep,
                       ///< nanosleep, select: microseconds; write: bytes
        long result;
        int error; ///< errno when the result is -1
    };

    /// A file or device of the unit, or a directory with all below it, is found at `to` instead.
    static void Redirect(const std::string& from, const std::string& to);
    static void Unredirect(const std::string& from); ///< the path no longer exists

    /**
     * Makes calls of a function fail, on paths and descriptors of the kit.
     * @param function as in C; "*" for any
     * @param error    errno of the failing calls; 0: none is set
     * @param nth      the first call to fail, counted from now, from 1
     * @param times    how many in a row
     * @param result   what they return
     */
    static void Fail(const char* function, int error, int nth = 1, int times = 1, long result = -1);
    static void FailWhenDone(const char* function, int error, int nth = 1,
                             int times = 1); ///< the same, for calls that are made and yet fail: close()
    static void Shorten(const char* function, int nth = 1,
                        int times = 1); ///< "read" and "write" concern one byte, however many are asked for
    static void RefuseThreads(int nth = 1, int times = 1); ///< the process gets no thread (EAGAIN)
    static void ForgetOrders();                            ///< nothing fails any more
    static int FailuresDone(); ///< how many calls have failed by order since the last Reset()

    static std::vector<Call> Calls(); ///< all, oldest first
    static std::vector<Call> CallsOf(const std::string& function);
    static void ForgetCalls();

    /// The settings that the last tcsetattr() asked for (a pseudo terminal does not keep all of them).
    static struct termios LastSettings();

    /// What the last fcntl(F_SETFL) asked for; -1 when there was none since the last Reset().
    static int LastStatusFlags();

    /// What tcgetattr() reports from now on, until the next tcsetattr(): for a line whose present settings a
    /// pseudo terminal could not have.
    static void ReportSettings(const struct termios& settings);

    /// The sleeps of usleep(), nanosleep(), sleep() and their kin so far, in order.
    static std::vector<std::chrono::microseconds> Sleeps();

    /// From now on umount() and umount2() are answered with success and recorded; before that they end the
    /// test program, since nothing here may unmount anything of this machine.
    static void AnswerUnmounts();

    static bool Reached(); ///< true when the stand-ins have taken at least one call of a library

    static void Reset();
};

}

#endif
