# Debian wants manual pages and changelogs compressed, and the same bytes from every build.
file(GLOB_RECURSE texts ${CPACK_TEMPORARY_DIRECTORY}/*.1 ${CPACK_TEMPORARY_DIRECTORY}/*.Debian)
list(FILTER texts INCLUDE REGEX "/(man1|doc)/")
foreach(text IN LISTS texts)
  execute_process(COMMAND gzip --best --no-name --force ${text} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
