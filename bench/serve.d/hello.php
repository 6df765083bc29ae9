<html><body>Hello <?= 'world' ?>, <?= htmlspecialchars($_SERVER['REQUEST_METHOD']) ?></body></html>
