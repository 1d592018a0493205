# CAPTIVE_PORTAL_SANITIZE: how everything in this build tree is compiled and linked.

set(CAPTIVE_PORTAL_SANITIZE address CACHE STRING
	"address (with undefined behaviour and leaks), thread, fuzzer (address and coverage feedback; clang), or none")
set_property(CACHE CAPTIVE_PORTAL_SANITIZE PROPERTY STRINGS address thread fuzzer none)

set(undefined_behaviour undefined,float-divide-by-zero)
if(CAPTIVE_PORTAL_SANITIZE STREQUAL "address")
	# "vptr" needs run-time type information, which the core does without.
	set(sanitizer_options -fsanitize=address,${undefined_behaviour} -fno-sanitize=vptr -fno-sanitize-recover=all)
elseif(CAPTIVE_PORTAL_SANITIZE STREQUAL "fuzzer")
	set(sanitizer_options -fsanitize=fuzzer-no-link,address,${undefined_behaviour} -fno-sanitize=vptr
		-fno-sanitize-recover=all)
elseif(CAPTIVE_PORTAL_SANITIZE STREQUAL "thread")
	set(sanitizer_options -fsanitize=thread)
	# The thread sanitizer's shadow needs the addresses that programs have without randomisation.
	set(CMAKE_CROSSCOMPILING_EMULATOR setarch -R)
elseif(NOT CAPTIVE_PORTAL_SANITIZE STREQUAL "none")
	message(FATAL_ERROR "CAPTIVE_PORTAL_SANITIZE: ${CAPTIVE_PORTAL_SANITIZE} is not known")
endif()
add_compile_options(${sanitizer_options} -fno-omit-frame-pointer)
add_link_options(${sanitizer_options})
