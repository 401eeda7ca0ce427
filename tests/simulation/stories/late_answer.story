# The late answer to a cancelled call ended the call that another reference to the object had given its number.
schedule
bytes
fault 1 0 1 0 1 0*2 1 0*2 1 51054 1 0*2 1 0 7 801 0*3 973063
load 3 3 0*5 49 0*3 85 0*13 81 6 0 67 13 2115 79 1 0*6 14 0 6 0 37 0*2 1 0 2 0 11 0 15 0*5 61 0*57 158 0 1 1
