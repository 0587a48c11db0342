// vfork() returns twice on one stack: nothing may lie there but the address to return to. So it is written as
// instructions, with that address in a register meanwhile.

#include "virtual-unit/time/Vfork.h"

#include "virtual-unit/time/Real.h"

#include <atomic>
#include <cerrno>
#include <cstdint>

namespace
{

constinit std::atomic<std::uint32_t> nowhere{0};

}

#define HIDDEN extern "C" __attribute__((visibility("hidden")))

HIDDEN std::atomic<std::uint32_t>* vforkCreators;
HIDDEN std::atomic<std::uint32_t>* vforkCreated;
constinit std::atomic<std::uint32_t>* vforkCreators = &nowhere;
constinit std::atomic<std::uint32_t>* vforkCreated = &nowhere;

HIDDEN pid_t vforkFailed(int error);

pid_t vforkFailed(int error)
{
    errno = error;
    return -1;
}

namespace VirtualTime
{

void CountVforks(Waits::Board& board)
{
    vforkCreators = &board.creators;
    vforkCreated = &board.created;
}

}

#if defined(__x86_64__)

asm(R"(
    .text
    .globl vfork
    .type vfork, @function
vfork:
    movq vforkCreators(%rip), %rax
    lock incl (%rax)
    popq %rdi
    movl $58, %eax
    syscall
    pushq %rdi
    testq %rax, %rax
    jz 1f
    movq vforkCreated(%rip), %rdx
    lock incl (%rdx)
    movq vforkCreators(%rip), %rdx
    lock decl (%rdx)
    cmpq $-4095, %rax
    jae 2f
1:  ret
2:  movl %eax, %edi
    negl %edi
    jmp vforkFailed
    .size vfork, .-vfork
)");

#else

/// A fork() is allowed in its place.
STAND_IN pid_t vfork() noexcept
{
    return fork();
}

#endif
