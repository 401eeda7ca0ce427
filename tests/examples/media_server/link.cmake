add_dependencies(${name}_tests skyfold) # The program that is run as a whole.
