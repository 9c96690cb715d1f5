There were 2 Peaks found from m/z=   290.00    to m/z=   510.00.
POSITIVE ION MODE
Noise threshold: 5.000000        Peak threshold: 20.000000

 Center of Mass for the Assigned Window is    366.9154

 Peak Location    Peak Height           Abundance         Resolving Power      Frequency

  500.5000         50.0000          617.2800000              50050           94907.413090
  300.1235        100.0000         1234.5678000              100041          158319.593218
