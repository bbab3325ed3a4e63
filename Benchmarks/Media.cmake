cm_add_executable(MediaDatabase ${CMAKE_CURRENT_LIST_DIR}/MediaDatabase.cpp)
target_link_libraries(MediaDatabase PRIVATE contentsmgr platform benchmark::benchmark)
# Json::FastWriter is what the plugin writes with.
target_compile_options(MediaDatabase PRIVATE -Wno-deprecated-declarations)

cm_add_executable(MediaScan ${CMAKE_CURRENT_LIST_DIR}/MediaScan.cpp)
target_link_libraries(MediaScan PRIVATE
  platform PkgConfig::EXIV2 PkgConfig::TAGLIB PkgConfig::LIBAVFORMAT)
target_compile_definitions(MediaScan PRIVATE EXTRACT_HELPER="$<TARGET_FILE:contents-mgr-extract>")
add_dependencies(MediaScan contents-mgr-extract make-sample-media)
