# Run by cpack before it packs: Debian wants manual pages compressed.
file(GLOB_RECURSE pages ${CPACK_TEMPORARY_DIRECTORY}/*.[1-9])
list(FILTER pages INCLUDE REGEX /share/man/)
foreach(page IN LISTS pages)
    execute_process(COMMAND gzip -9n ${page} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
