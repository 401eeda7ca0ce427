target_compile_definitions(${name}_tests PRIVATE LOGIN_MANAGER="${CMAKE_CURRENT_LIST_DIR}/login_manager.py")
