# Targets `format`, which corrects the formatting, and `lint`, which runs all checks of scripts/lint.
add_custom_target(format COMMAND ${PROJECT_SOURCE_DIR}/scripts/lint --fix format USES_TERMINAL VERBATIM)
add_custom_target(lint COMMAND ${PROJECT_SOURCE_DIR}/scripts/lint --build-dir ${CMAKE_BINARY_DIR} USES_TERMINAL VERBATIM)
add_dependencies(lint wsmd) # one check reads the built program
