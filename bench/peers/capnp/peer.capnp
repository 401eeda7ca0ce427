@0xb4e6c5c1f0a1d3a7;

interface Echo {
  echo @0 (argument :Data) -> (result :Data);
}

interface Subscriber {
  event @0 (body :Data) -> stream;
}

interface Feed {
  subscribe @0 (index :UInt64, subscriber :Subscriber) -> ();
  acknowledge @1 (index :UInt64, events :UInt64) -> ();
}
