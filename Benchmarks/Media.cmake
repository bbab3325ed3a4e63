cm_add_executable(MediaDatabase ${CMAKE_CURRENT_LIST_DIR}/MediaDatabase.cpp)
target_link_libraries(MediaDatabase PRIVATE platform benchmark::benchmark)
