include(CheckCXXSourceCompiles)

# What makes an attacker's work harder in code that reads what peers send: calls with a known size are checked
# (the highest level that the compiler and the C library know), stacks are guarded, indirect jumps land where a
# function begins, and nothing that the loader has bound can be written to.  Only optimised builds have it, and none
# under a sanitizer, which looks at more.
set(tav_hardening "")
if(NOT TAV_SANITIZE AND NOT TAV_COVERAGE AND NOT TAV_MUTANTS)
    foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection=full)
        string(MAKE_C_IDENTIFIER "TAV_HAS${flag}" known)
        set(CMAKE_REQUIRED_FLAGS "-Werror ${flag}")
        check_cxx_source_compiles("int main() { return 0; }" ${known})
        if(${known})
            list(APPEND tav_hardening ${flag})
        endif()
    endforeach()
    foreach(level 3 2)
        set(CMAKE_REQUIRED_FLAGS "-Werror -O2 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=${level}")
        check_cxx_source_compiles("#include <cstring>\nint main() { return 0; }" TAV_FORTIFY_${level})
        if(TAV_FORTIFY_${level})
            list(APPEND tav_hardening $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE>
                 $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=${level}>)
            break()
        endif()
    endforeach()
    unset(CMAKE_REQUIRED_FLAGS)
endif()

# For the objects of a library that is shipped, and for what links them.
function(tav_harden_objects target)
    target_compile_options(${target} PRIVATE ${tav_hardening})
endfunction()
function(tav_harden_library target)
    target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endfunction()
