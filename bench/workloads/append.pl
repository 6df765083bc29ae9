my $s = ""; for (my $i = 1; $i <= @N@; $i++) { $s = $s . $i . ","; } print length($s), "\n";
