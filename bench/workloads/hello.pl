print "Hello, world\n";
