#----------------------------------------------------------------
# Generated CMake target import file for configuration "RelWithDebInfo".
#----------------------------------------------------------------

# Commands may need to know the format version.
set(CMAKE_IMPORT_FILE_VERSION 1)

# Import target "LumBase::LumBase" for configuration "RelWithDebInfo"
set_property(TARGET LumBase::LumBase APPEND PROPERTY IMPORTED_CONFIGURATIONS RELWITHDEBINFO)
set_target_properties(LumBase::LumBase PROPERTIES
  IMPORTED_LOCATION_RELWITHDEBINFO "${_IMPORT_PREFIX}/lib/libLumBase.so.0.1.0"
  IMPORTED_SONAME_RELWITHDEBINFO "libLumBase.so.0"
  )

list(APPEND _cmake_import_check_targets LumBase::LumBase )
list(APPEND _cmake_import_check_files_for_LumBase::LumBase "${_IMPORT_PREFIX}/lib/libLumBase.so.0.1.0" )

# Commands beyond this point should not need to know the version.
set(CMAKE_IMPORT_FILE_VERSION)
