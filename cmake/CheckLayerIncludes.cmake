# Fails when a file of one layer includes a header of a layer it may not use.
#
#   cmake -DDIR=<folder> -DLAYER=<name> -DALLOWED=<a,b,...> -DSTAMP=<file> -P CheckLayerIncludes.cmake
#
# Every project header is included by its path from the source root
# ("platform/core/Ptr.h"), so the folder of an include names its layer. An include of a
# project folder that is not in ALLOWED is reported with the file and line, and the
# build stops. Headers of the system and of libraries are not looked at.
cmake_minimum_required(VERSION 3.25)
string(REPLACE "," ";" allowed "${ALLOWED}")
set(projectRoots platform frames agent forwarding varp host tools)
file(GLOB_RECURSE files "${DIR}/*.h" "${DIR}/*.cpp")
set(faults "")
foreach(f IN LISTS files)
  file(STRINGS "${f}" lines REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*\"([^\"]*)\".*" "\\1" inc "${line}")
    string(REGEX MATCH "^[^/]+" root "${inc}")
    if(NOT root IN_LIST projectRoots)
      continue()
    endif()
    # A platform header belongs to the layer of its folder (platform/status/vxlan/X.h is
    # in "status"); any other project header to its top folder.
    if(root STREQUAL "platform")
      string(REGEX MATCH "^platform/[^/]+" target "${inc}")
    else()
      set(target "${root}")
    endif()
    if(NOT target IN_LIST allowed)
      file(RELATIVE_PATH rel "${DIR}/.." "${f}")
      string(APPEND faults "  ${rel}: #include \"${inc}\"\n")
    endif()
  endforeach()
endforeach()
if(faults)
  message(FATAL_ERROR "layer ${LAYER} may include only ${ALLOWED}; these reach above it:\n${faults}")
endif()
file(TOUCH "${STAMP}")
