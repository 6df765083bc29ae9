<?php
$text = '';
for ($i = 0; $i < @N@; $i++) $text .= "k$i=$i ";
preg_match_all('/(\w+)=(\d+)/', $text, $matches, PREG_SET_ORDER);
$sum = 0;
foreach ($matches as $match) $sum += strlen($match[1]) + $match[2];
echo "\n\n$sum\n";
