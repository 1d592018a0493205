# CAPTIVE_PORTAL_COVERAGE: the target "coverage" runs the host tests and prints the lines and branches of the core that
# they reach.

option(CAPTIVE_PORTAL_COVERAGE "Count the lines and branches that tests reach" OFF)
if(CAPTIVE_PORTAL_COVERAGE)
	find_program(gcovr gcovr REQUIRED)
	# The optimiser merges branches and makes others.
	add_compile_options(--coverage -fprofile-update=atomic -O0)
	add_link_options(--coverage)
	add_custom_target(coverage
		COMMAND find ${CMAKE_BINARY_DIR} -name "*.gcda" -delete
		COMMAND ${CMAKE_CTEST_COMMAND} --output-on-failure --quiet --output-log ctest.log
		COMMAND ${gcovr} --root ${PROJECT_SOURCE_DIR} ${CMAKE_BINARY_DIR}
			--filter "${PROJECT_SOURCE_DIR}/(base|core|gatekeeper|portal|garden)/"
			--exclude-throw-branches --exclude-unreachable-branches
			--txt coverage.txt --json-summary coverage.json --print-summary
		COMMAND cat coverage.txt
		WORKING_DIRECTORY ${CMAKE_BINARY_DIR}
		USES_TERMINAL VERBATIM)
endif()
