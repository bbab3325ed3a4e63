set(endurance ${PROJECT_SOURCE_DIR}/Tests/Endurance/Support)
cm_add_executable(ServiceRows ${CMAKE_CURRENT_LIST_DIR}/ServiceRows.cpp
  ${endurance}/ServiceProcess.cpp ${endurance}/Sticks.cpp ${endurance}/Vitals.cpp
  ${PROJECT_SOURCE_DIR}/Tests/EndToEnd/Support/DBusClient.cpp)
target_include_directories(ServiceRows PRIVATE ${PROJECT_SOURCE_DIR}/Tests)
target_compile_definitions(ServiceRows PRIVATE
  ENDURANCE_SERVICE="$<TARGET_FILE:contents-mgr>"
  ENDURANCE_EXTRACTOR="$<TARGET_FILE:contents-mgr-extract>"
  ENDURANCE_SAMPLES="$<TARGET_FILE:make-sample-media>"
  ENDURANCE_LEAKS="${PROJECT_SOURCE_DIR}/Tests/Endurance/leaks.supp")
target_link_libraries(ServiceRows PRIVATE platform)
add_dependencies(ServiceRows contents-mgr contents-mgr-extract make-sample-media)
