# The same sources make the same files, wherever and whenever they are built: no path of the build is in them, and all
# that has a time has that of the newest entry of the changelog, unless SOURCE_DATE_EPOCH names another.

add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}=. -ffile-prefix-map=${CMAKE_BINARY_DIR}=build)

if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  file(STRINGS ${CMAKE_SOURCE_DIR}/packaging/debian/changelog.in trailer REGEX "^ -- ")
  list(GET trailer 0 trailer)
  string(REGEX REPLACE "^ -- .*  " "" changelog_date "${trailer}")
  execute_process(COMMAND date --utc "--date=${changelog_date}" +%s
                  OUTPUT_VARIABLE changelog_seconds OUTPUT_STRIP_TRAILING_WHITESPACE
                  RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "The changelog's date is not understood, and SOURCE_DATE_EPOCH is not set: ${trailer}")
  endif()
  set(ENV{SOURCE_DATE_EPOCH} ${changelog_seconds})
endif()
# As it was when the build was configured, also for what is made later.
set(SAVERESTORE_DATE_EPOCH $ENV{SOURCE_DATE_EPOCH})
