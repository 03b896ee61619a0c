# Archive reader tests: shared helpers. Oracles (zlib, Info-ZIP zip, Python's zipfile)
# are used by the tests only, never by the library.
target_sources(ncodecbase_tests PRIVATE ${CMAKE_CURRENT_LIST_DIR}/archive_test_util.cpp)
