# cmake -D TEMPLATE=... -D SECTIONS=... -D RESULT=... -P: the template with the sections in the place of its one line
# "@SECTIONS@".
cmake_minimum_required(VERSION 3.25)
file(READ ${TEMPLATE} page)
file(READ ${SECTIONS} sections)
if(NOT page MATCHES "\n@SECTIONS@\n")
	message(FATAL_ERROR "${TEMPLATE} has no line @SECTIONS@")
endif()
if(NOT sections MATCHES "\n.Sh COMMANDS\n")
	message(FATAL_ERROR "${SECTIONS} has no commands")
endif()
string(REPLACE "@SECTIONS@\n" "${sections}" page "${page}")
file(WRITE ${RESULT} "${page}")
