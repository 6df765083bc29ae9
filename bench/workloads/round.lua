sum = 0; for i = 1, @N@ do sum = sum + tonumber(string.format("%.2f", i / 7)) end print(string.format("%.2f", sum))
