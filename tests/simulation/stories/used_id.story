# An id was used again: whoever knew it as dead took the new worker's objects for dead until it was told.
schedule
bytes
fault 0 22373 0*3 1 0*4 1
load 3 0 15
