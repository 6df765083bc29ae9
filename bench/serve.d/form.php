<ul><?php for ($i = 1; $i <= 10; $i++) { $name = "f$i"; ?><li><?= $name ?>: <?= $_POST[$name] ?></li><?php } ?></ul>
