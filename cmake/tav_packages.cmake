# Finds what a part of the project needs.  What is missing is told with the Debian package that has it and the command
# that installs all packages of the part: library, demo or test, as scripts/packages.sh knows them.
function(tav_missing part debian_package what)
    message(FATAL_ERROR "${what} is missing: it is in the Debian package ${debian_package}.\n"
                        "  scripts/packages.sh ${part}\n"
                        "installs all that this build needs.")
endfunction()

macro(tav_find_package part debian_package name)
    find_package(${name} ${ARGN} QUIET)
    if(NOT ${name}_FOUND)
        tav_missing(${part} ${debian_package} ${name})
    endif()
endmacro()

macro(tav_find_path part debian_package variable file)
    find_path(${variable} ${file})
    if(NOT ${variable})
        tav_missing(${part} ${debian_package} ${file})
    endif()
endmacro()

macro(tav_find_program part debian_package variable)
    find_program(${variable} NAMES ${ARGN})
    if(NOT ${variable})
        tav_missing(${part} ${debian_package} "${ARGN}")
    endif()
endmacro()
