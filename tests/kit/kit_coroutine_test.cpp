#include "tav/kit/coroutine.h"

#include <gtest/gtest.h>
