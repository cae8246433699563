// Every way to memory that the library has, made to fail at will: its counted allocator, operator new, jansson's allocator, and the start
// of a thread. Only calls of the arming thread count, so that the library's own thread does not blur the numbering.
#ifndef FAILING_FAILINGALLOCATIONS_H
#define FAILING_FAILINGALLOCATIONS_H

namespace failing {

// From now on the allocations numbered `first` to `first + count - 1` of this thread fail; 0 is the next one.
void arm(long first, long count);
// Lets everything pass again. Returns how many allocations were asked for since arm().
long disarm();
// Blocks in use that came from one of the allocators, of all threads.
long blocks();

} // namespace failing

#endif
