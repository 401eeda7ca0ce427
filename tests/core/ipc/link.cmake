add_dependencies(${name}_tests hub) # The module runtime needs one in another process.
