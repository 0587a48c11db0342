// Included first by every source that carries mutants (tools/mutate).

#ifndef TOOLS_MUTATION_MUTANT_H
#define TOOLS_MUTATION_MUTANT_H

/// The mutant of this process: 0 none, below 0 when tav_mutant_asked() has to be asked.
extern "C" __attribute__((visibility("default"))) int tav_mutant_chosen;

extern "C" __attribute__((visibility("default"))) bool tav_mutant_asked(int id) noexcept;

inline __attribute__((visibility("hidden"))) bool tav_mutant(int id) noexcept
{
    const int chosen = __atomic_load_n(&tav_mutant_chosen, __ATOMIC_RELAXED);
    return chosen < 0 ? tav_mutant_asked(id) : chosen == id;
}

#endif
