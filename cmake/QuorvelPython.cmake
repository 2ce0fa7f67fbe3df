# Whether the Python package can be built, with which Python, and where it is installed. That Python is the system's:
# one of a user's own that comes first in the path has none of the system's packages.

find_program(QUORVEL_PYTHON_PROGRAM python3 PATHS /usr/bin NO_DEFAULT_PATH)
find_program(QUORVEL_PYTHON_PROGRAM python3)

# Prints where the headers and the packages are, and how wide a pointer is; fails without the module cffi.
set(question [[
import os, struct, sys, sysconfig
import cffi
include = sysconfig.get_path("include")
if not os.path.exists(os.path.join(include, "Python.h")):
    sys.exit("Python.h is missing")
packages = os.path.basename(sysconfig.get_path("platlib"))
print(include, "python%d.%d/%s" % (*sys.version_info[:2], packages), struct.calcsize("P"), sep=";")
]])
set(answer "")
if(QUORVEL_PYTHON_PROGRAM)
  execute_process(COMMAND "${QUORVEL_PYTHON_PROGRAM}" -c "${question}"
    OUTPUT_VARIABLE answer ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()

# A cross build takes the headers of the target's Python from where this machine's are, as Debian has them.
set(possible OFF)
if(answer AND NOT QUORVEL_SANITIZE AND NOT QUORVEL_COVERAGE)
  list(GET answer 2 width)
  if(CMAKE_CROSSCOMPILING OR width EQUAL CMAKE_SIZEOF_VOID_P)
    set(possible ON)
  endif()
endif()
set(default ${possible})
if(CMAKE_CROSSCOMPILING)
  set(default OFF)
endif()
option(QUORVEL_PYTHON "Build the Python package" ${default})
if(NOT QUORVEL_PYTHON)
  return()
endif()
if(NOT possible)
  if(NOT answer)
    quorvel_missing("The Python package" QUORVEL_PYTHON python3-cffi)
  elseif(QUORVEL_STRICT)
    message(FATAL_ERROR "The Python package is as wide as this machine's Python, and not for a sanitizer; -DQUORVEL_PYTHON=OFF does without.")
  endif()
  return()
endif()

list(GET answer 0 QUORVEL_PYTHON_INCLUDE)
list(GET answer 1 versioned)
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(versioned "python3/dist-packages") # the distribution's packages are for every version of it
endif()
set(QUORVEL_PYTHON_FOLDER "lib/${versioned}" CACHE STRING "Where the Python package is installed, below the prefix")
