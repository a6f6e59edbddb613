// The tracked buffers, counted by the places that made them.
#pragma once

namespace zx::diag {

// The next round has not begun.
void await_round();

// Counts the buffers that were made earlier. For the threads of the program: it takes the lock of
// the allocator. `was_off`: the diagnosis was off before. Otherwise waits for nobody, and helps a
// thread that is counting.
void count_memory(bool was_off);

// Remembers the numbers of now every ten seconds, for the growth. Called more often.
void sample_memory();

// In the child of a fork: the marks and samples are its parent's.
void forget_marks();

}  // namespace zx::diag
