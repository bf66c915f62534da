# Which implementation of platform/include the client is built for: a folder whose CMakeLists.txt defines the target
# platform_libraries (docs/integrate.md). A relative path counts from the root of this tree.
set(TSUC_PLATFORM platform/host CACHE STRING "Folder of the platform that the client is built for")
cmake_path(ABSOLUTE_PATH TSUC_PLATFORM BASE_DIRECTORY ${PROJECT_SOURCE_DIR} NORMALIZE OUTPUT_VARIABLE TSUC_PLATFORM_FOLDER)
set(TSUC_ON_HOST_PLATFORM OFF)
if(TSUC_PLATFORM_FOLDER STREQUAL "${PROJECT_SOURCE_DIR}/platform/host")
  set(TSUC_ON_HOST_PLATFORM ON)
endif()
