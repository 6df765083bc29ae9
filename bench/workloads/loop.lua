i = 0; while i < @N@ do i = i + 1 end print(i)
