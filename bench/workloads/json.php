<?php
$text = '[';
for ($i = 0; $i < @N@; $i++) $text .= '{"name":"n' . $i . '","value":' . $i . '},';
$items = json_decode($text . '{}]');
$sum = 0;
for ($i = 0; $i < count($items) - 1; $i++) $sum += strlen($items[$i]->name) + $items[$i]->value;
echo "\n\n$sum\n";
