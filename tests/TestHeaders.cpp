// Carries the precompiled headers of the tests; nothing is in it.
