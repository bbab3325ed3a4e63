set(service ${PROJECT_SOURCE_DIR}/Tests/Service)
cm_add_executable(ServiceRows ${CMAKE_CURRENT_LIST_DIR}/ServiceRows.cpp
  ${service}/DBusClient.cpp ${service}/Program.cpp ${service}/ServiceProcess.cpp
  ${service}/Sticks.cpp ${service}/Vitals.cpp)
target_include_directories(ServiceRows PRIVATE ${PROJECT_SOURCE_DIR}/Tests)
target_compile_definitions(ServiceRows PRIVATE
  SERVICE_PROGRAM="$<TARGET_FILE:contents-mgr>"
  SERVICE_SAMPLES="$<TARGET_FILE:make-sample-media>"
  SERVICE_LEAKS="${service}/leaks.supp")
target_link_libraries(ServiceRows PRIVATE platform)
add_dependencies(ServiceRows contents-mgr contents-mgr-extract make-sample-media)
