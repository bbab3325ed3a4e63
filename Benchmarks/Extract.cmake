cm_add_executable(ExtractLibraries
  ${CMAKE_CURRENT_LIST_DIR}/ExtractLibraries.cpp ${PROJECT_SOURCE_DIR}/Platform/Log/Log.cpp)
target_link_libraries(ExtractLibraries PRIVATE
  metadata_pool metadata_readers benchmark::benchmark
  PkgConfig::EXIV2 PkgConfig::TAGLIB PkgConfig::LIBAVFORMAT)
target_compile_definitions(ExtractLibraries PRIVATE
  EXTRACT_HELPER="$<TARGET_FILE:contents-mgr-extract>")
add_dependencies(ExtractLibraries contents-mgr-extract make-sample-media)
