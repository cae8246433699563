// The build identification text.
#ifndef TAVVERSION_TAVVERSION_H
#define TAVVERSION_TAVVERSION_H

#include <tav/instance.h> // declares tavGetVersion()

#endif
