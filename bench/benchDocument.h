// A document of any size, nodes with their servers, for benchmarks of the configuration's way.
#ifndef BENCH_BENCHDOCUMENT_H
#define BENCH_BENCHDOCUMENT_H

#include <string>

// `objects` in all: of every ten, one server, two transports, seven server applications; and the servers' cluster.
std::string benchDocument(int objects);

#endif
