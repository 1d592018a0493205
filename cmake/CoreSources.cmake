# The core's sources, read from the list that the kernel build reads too.

set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/sources.mk)
file(READ ${PROJECT_SOURCE_DIR}/sources.mk text)
if(NOT text MATCHES "\ncaptive_portal-core := \\\\\n(\t[a-z0-9_/]+\\.o( \\\\)?\n)+$")
	message(FATAL_ERROR "sources.mk: not one list of objects, one on a line")
endif()
string(REGEX MATCHALL "[a-z0-9_/]+\\.o" core_sources "${text}")
list(TRANSFORM core_sources REPLACE "\\.o$" ".cpp")
