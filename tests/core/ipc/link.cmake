add_dependencies(${name}_tests hub) # The module runtime needs one in another process.
target_sources(${name}_tests PRIVATE ${PROJECT_SOURCE_DIR}/libs/core/ipc/wire/detail/message_codec.cpp
    ${PROJECT_SOURCE_DIR}/libs/core/ipc/wire/detail/frame_output_stream.cpp) # Not exported.
