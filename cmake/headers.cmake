# SPDX-License-Identifier: MIT
# A build in units reads what nearly all of them include once. What needs no Qt, as the floors, goes without, and the
# plugin, whose code is compiled for another place.

add_library(pvm_headers OBJECT cmake/headers.cpp)
target_link_libraries(pvm_headers PRIVATE pvm_build Qt${PVM_QT}::Core)
target_precompile_headers(pvm_headers PRIVATE cmake/headers.h)
set_target_properties(pvm_headers PROPERTIES AUTOMOC OFF)

# All targets of a folder and those below it.
function(pvm_share_headers folder)
  get_property(below DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
  foreach(next ${below})
    pvm_share_headers(${next})
  endforeach()
  get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target ${targets})
    get_property(type TARGET ${target} PROPERTY TYPE)
    if(type MATCHES "^(EXECUTABLE|(STATIC|OBJECT)_LIBRARY)$")
      set_target_properties(${target} PROPERTIES PRECOMPILE_HEADERS_REUSE_FROM pvm_headers)
    endif()
  endforeach()
endfunction()

get_property(folders DIRECTORY PROPERTY SUBDIRECTORIES)
list(FILTER folders EXCLUDE REGEX "/(performance|machine|packaging|fuzz)$")
foreach(folder ${folders})
  pvm_share_headers(${folder})
endforeach()
