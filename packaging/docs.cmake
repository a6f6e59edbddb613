# Installs the documentation: the pages, the example programs, and the manual pages if scripts/docs.sh has made them.
install(
    DIRECTORY ${PROJECT_SOURCE_DIR}/build/docs/man/
    DESTINATION ${CMAKE_INSTALL_MANDIR}
    COMPONENT development
    OPTIONAL)

set(docs_dir ${CMAKE_INSTALL_DATAROOTDIR}/doc/libzxcommon-dev)
install(
    DIRECTORY ${PROJECT_SOURCE_DIR}/docs/
    DESTINATION ${docs_dir}
    COMPONENT development
    FILES_MATCHING
    PATTERN "*.md"
    PATTERN "*.schema.json"
    PATTERN "*.svg"
    PATTERN "*.png")
install(
    DIRECTORY ${PROJECT_SOURCE_DIR}/examples
    DESTINATION ${docs_dir}
    COMPONENT development)

# Relative to the pages, the programs are one folder nearer than in the source tree.
install(
    CODE "set(docs ${docs_dir})
cmake_path(ABSOLUTE_PATH docs BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
file(GLOB_RECURSE pages \"\$ENV{DESTDIR}\${docs}/*.md\")
foreach(page IN LISTS pages)
    file(READ \${page} text)
    string(REPLACE \"](../examples\" \"](examples\" text \"\${text}\")
    string(REPLACE \"](../../examples\" \"](../examples\" text \"\${text}\")
    file(WRITE \${page} \"\${text}\")
endforeach()"
    COMPONENT development)
