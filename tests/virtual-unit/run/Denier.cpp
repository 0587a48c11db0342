// Starts a program on a machine that has no seccomp user notification: a filter denies what the kernel or a
// container may deny. Arguments: the error's number, and the program with its arguments.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <seccomp.h>
#include <sys/prctl.h>
#include <unistd.h>

int main(int argc, char** argv)
{
    if (argc < 3)
    {
        return 2;
    }
    const auto error = static_cast<unsigned int>(std::atoi(argv[1]));
    const scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
    const bool denies =
        filter != nullptr && seccomp_rule_add(filter, SCMP_ACT_ERRNO(error), SCMP_SYS(seccomp), 0) == 0 &&
        seccomp_rule_add(filter, SCMP_ACT_ERRNO(error), SCMP_SYS(prctl), 1,
                         SCMP_A0(SCMP_CMP_EQ, PR_SET_SECCOMP)) == 0 &&
        seccomp_rule_add(filter, SCMP_ACT_ERRNO(error), SCMP_SYS(process_vm_readv), 0) == 0 &&
        seccomp_rule_add(filter, SCMP_ACT_ERRNO(error), SCMP_SYS(process_vm_writev), 0) == 0 &&
        seccomp_load(filter) == 0;
    if (!denies)
    {
        std::perror("denier");
        return 125;
    }
    execvp(argv[2], argv + 2);
    return 127;
}
