# The core's sources, relative to the tree's root, read from the list that the kernel build reads too.

cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH core_root)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${core_root}/sources.mk)
file(READ ${core_root}/sources.mk text)
if(NOT text MATCHES "\ncaptive_portal-core := \\\\\n(\t[a-z0-9_/]+\\.o( \\\\)?\n)+$")
	message(FATAL_ERROR "sources.mk: not one list of objects, one on a line")
endif()
string(REGEX MATCHALL "[a-z0-9_/]+\\.o" core_sources "${text}")
list(TRANSFORM core_sources REPLACE "\\.o$" ".cpp")
