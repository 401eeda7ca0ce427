add_dependencies(${name}_tests hub) # The module runtime needs one in another process.
foreach(internal dispatcher/detail/open_files dispatcher/detail/usage_counts dispatcher/detail/worker_ids wire/detail/frame_output_stream
        wire/detail/message_codec wire/detail/message_dump wire/detail/scanner)
    target_sources(${name}_tests PRIVATE ${PROJECT_SOURCE_DIR}/libs/core/ipc/${internal}.cpp) # Not exported.
endforeach()
