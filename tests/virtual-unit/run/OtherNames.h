#ifndef TESTS_VIRTUAL_UNIT_RUN_OTHERNAMES_H
#define TESTS_VIRTUAL_UNIT_RUN_OTHERNAMES_H

/// Calls each name once, and tells what it gave. @return 0; 1 where there is no card
int OtherNames();

#endif
