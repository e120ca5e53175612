# Targets `format`, which puts the formatting right, and `lint`, which looks at everything: scripts/lint has the checks.
add_custom_target(format COMMAND ${PROJECT_SOURCE_DIR}/scripts/lint --fix format USES_TERMINAL VERBATIM)
add_custom_target(lint COMMAND ${PROJECT_SOURCE_DIR}/scripts/lint --build-dir ${CMAKE_BINARY_DIR} USES_TERMINAL VERBATIM)
add_dependencies(lint wsmd) # whose finished file is looked at, too
