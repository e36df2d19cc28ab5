# Fails the docs target when Doxygen wrote any warning, after printing them.
# Removing the index on failure makes the next build run Doxygen again.
# Usage: cmake -DLOG=<warning log> -DINDEX=<html/index.html> -P CheckDoxygenWarnings.cmake
file(READ "${LOG}" warnings)
string(STRIP "${warnings}" warnings)
if(NOT warnings STREQUAL "")
    message("${warnings}")
    file(REMOVE "${INDEX}")
    message(FATAL_ERROR "Doxygen warnings (see above): document every public member")
endif()
