# The example that README.md shows is the program that is built: examples/first.cpp, to the letter.
file(READ ${ROOT}/README.md readme)
file(READ ${ROOT}/examples/first.cpp program)
string(FIND "${readme}" "```cpp\n${program}```" at)
if(at EQUAL -1)
    message(FATAL_ERROR "the example in README.md is not examples/first.cpp")
endif()
