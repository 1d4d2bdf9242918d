# The bill of materials, SPDX 2.3 as JSON: the libraries that the programs are linked with, and their versions as this
# build has found them. Included by CMakeLists.txt, it says how it is made; run by the build, it makes it.

if(NOT DEFINED PROGRAM)
  file(STRINGS ${LIBDEFLATE_INCLUDE_DIRECTORY}/libdeflate.h deflate REGEX "define LIBDEFLATE_VERSION_STRING")
  string(REGEX MATCH "[0-9][0-9.]*" deflate_version "${deflate}")
  file(STRINGS ${ZLIB_INCLUDE_DIR}/zlib.h zlib REGEX "define ZLIB_VERSION")
  string(REGEX MATCH "[0-9][0-9.]*" zlib_version "${zlib}")
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/features.cpp "#include <features.h>\nglibc_ __GLIBC__ __GLIBC_MINOR__\n")
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -E -P ${CMAKE_CURRENT_BINARY_DIR}/features.cpp
                  OUTPUT_VARIABLE features ERROR_QUIET)
  string(REGEX REPLACE ".*glibc_ ([0-9]+) ([0-9]+).*" "\\1.\\2" glibc_version "${features}")
  file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/versions.cmake @ONLY CONTENT [[
set(version_libQt6 "@Qt6_VERSION@")
set(version_libcurl "@CURL_VERSION_STRING@")
set(version_libcrypto "@OPENSSL_VERSION@")
set(version_libssl "@OPENSSL_VERSION@")
set(version_libarchive "@LibArchive_VERSION@")
set(version_libsqlite3 "@SQLite3_VERSION@")
set(version_libdeflate "@deflate_version@")
set(version_libz "@zlib_version@")
set(version_libstdc++ "@CMAKE_CXX_COMPILER_VERSION@")
set(version_libgcc_s "@CMAKE_CXX_COMPILER_VERSION@")
set(version_libc "@glibc_version@")
set(version_libm "@glibc_version@")
set(version_ld-linux "@glibc_version@")
set(own_version "@PROJECT_VERSION@")
set(architecture "@CPACK_DEBIAN_PACKAGE_ARCHITECTURE@")
set(date_epoch "@SAVERESTORE_DATE_EPOCH@")
]])
  set(bill ${CMAKE_CURRENT_BINARY_DIR}/vyxsaverestore.spdx.json)
  add_custom_command(OUTPUT ${bill} DEPENDS VYXSaveRestore saverestorectl BillOfMaterials.cmake
                     COMMENT "Writing the bill of materials" VERBATIM
                     COMMAND ${CMAKE_COMMAND} -DPROGRAM=$<TARGET_FILE:VYXSaveRestore>
                             -DCOMMAND=$<TARGET_FILE:saverestorectl> -DREADELF=${CMAKE_READELF}
                             -DVERSIONS=${CMAKE_CURRENT_BINARY_DIR}/versions.cmake -DBILL=${bill}
                             -P ${CMAKE_CURRENT_SOURCE_DIR}/BillOfMaterials.cmake)
  add_custom_target(bill_of_materials ALL DEPENDS ${bill})
  install(FILES ${bill} DESTINATION ${documents_directory})
  return()
endif()

include(${VERSIONS})
if(date_epoch)
  set(ENV{SOURCE_DATE_EPOCH} ${date_epoch})
endif()
string(TIMESTAMP created "%Y-%m-%dT%H:%M:%SZ" UTC)
execute_process(COMMAND ${READELF} -d ${PROGRAM} ${COMMAND} OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
# A list does not take brackets for what they are.
string(REPLACE "[" "<" dynamic "${dynamic}")
string(REGEX MATCHALL "\\(NEEDED\\)[^<\n]*<[^]\n]*" needed "${dynamic}")
# Loaded when a server is the repository.
list(APPEND needed "(NEEDED) <libcurl.so.4")
list(TRANSFORM needed REPLACE ".*<" "")
list(REMOVE_DUPLICATES needed)

# add_package(ID NAME VERSION LICENCE): an empty version is left out.
function(add_package id name version licence)
  set(text "    {\"SPDXID\": \"SPDXRef-${id}\", \"name\": \"${name}\",")
  if(version)
    string(APPEND text " \"versionInfo\": \"${version}\",")
  endif()
  string(APPEND text " \"downloadLocation\": \"NOASSERTION\", \"filesAnalyzed\": false,\n     "
         "\"licenseConcluded\": \"${licence}\", \"licenseDeclared\": \"${licence}\", "
         "\"copyrightText\": \"NOASSERTION\"}")
  set_property(GLOBAL APPEND PROPERTY packages "${text}")
endfunction()

# add_relation(FROM KIND TO)
function(add_relation from kind to)
  set_property(GLOBAL APPEND PROPERTY relations "    {\"spdxElementId\": \"SPDXRef-${from}\", \
\"relationshipType\": \"${kind}\", \"relatedSpdxElement\": \"SPDXRef-${to}\"}")
endfunction()

add_package(vyxsaverestore vyxsaverestore "${own_version}" NONE)
add_relation(DOCUMENT DESCRIBES vyxsaverestore)
foreach(library ${needed})
  string(REGEX REPLACE "^(libQt6|ld-linux|[^.]+).*" "\\1" family "${library}")
  string(REGEX REPLACE "[^A-Za-z0-9.-]" "-" id "${library}")
  add_package(${id} ${library} "${version_${family}}" NOASSERTION)
  add_relation(vyxsaverestore DYNAMIC_LINK ${id})
endforeach()
# The one program that it runs.
add_package(sqlite3 sqlite3 "" NOASSERTION)
add_relation(sqlite3 RUNTIME_DEPENDENCY_OF vyxsaverestore)

get_property(packages GLOBAL PROPERTY packages)
get_property(relations GLOBAL PROPERTY relations)
string(JOIN ",\n" packages ${packages})
string(JOIN ",\n" relations ${relations})
file(SHA256 ${PROGRAM} sum)
file(SHA256 ${COMMAND} sum_of_command)
# Other programs are another document; the name space of the UUID is the one of object identifiers.
string(UUID document NAMESPACE 6ba7b812-9dad-11d1-80b4-00c04fd430c8 NAME ${sum}${sum_of_command} TYPE SHA1)
file(WRITE ${BILL} "{
  \"spdxVersion\": \"SPDX-2.3\",
  \"SPDXID\": \"SPDXRef-DOCUMENT\",
  \"dataLicense\": \"CC0-1.0\",
  \"name\": \"vyxsaverestore-${own_version}-${architecture}\",
  \"documentNamespace\": \"urn:uuid:${document}\",
  \"creationInfo\": {\"created\": \"${created}\", \"creators\": [\"Tool: cmake-${CMAKE_VERSION}\"]},
  \"packages\": [\n${packages}\n  ],
  \"relationships\": [\n${relations}\n  ]
}\n")
