# The renderer's end of the link to the PVM controller: target pvm-renderer::link.
include(CMakeFindDependencyMacro)
find_dependency(Qt5Core 5.15)
find_dependency(Threads)
include(${CMAKE_CURRENT_LIST_DIR}/pvm-renderer-targets.cmake)
