// Must not compile: tav::kit::check<T>: T is a class of objects
#include "tav/kit/check.h"

std::string const faults = tav::kit::check<int>();
