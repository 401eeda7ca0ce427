@0xb4e6c5c1f0a1d3a7;

interface Echo {
  echo @0 (argument :Data) -> (result :Data);
}
