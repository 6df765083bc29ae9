local t = {} for i = 1, @N@ do t[#t + 1] = i t[#t + 1] = "," end print(#table.concat(t))
