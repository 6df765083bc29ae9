for my $i (1 .. @N@) { print "<tr>"; for my $j (1 .. @N@) { print "<td>$i.$j</td>"; } print "</tr>\n"; }
