Hello, world
