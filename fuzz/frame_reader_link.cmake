target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/libs/core/ipc/wire/detail/message_codec.cpp
    ${PROJECT_SOURCE_DIR}/libs/core/ipc/wire/detail/scanner.cpp
    ${PROJECT_SOURCE_DIR}/libs/core/ipc/wire/detail/frame_output_stream.cpp) # Not exported.
