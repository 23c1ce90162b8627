#ifndef TAV_TESTS_SUPPORT_PRECOMPILED_H
#define TAV_TESTS_SUPPORT_PRECOMPILED_H

/// Others' headers that most tests include, compiled once for all of them.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#endif
