print("Hello, world")
