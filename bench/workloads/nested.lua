for i = 1, @N@ do io.write("<tr>") for j = 1, @N@ do io.write("<td>", i, ".", j, "</td>") end io.write("</tr>\n") end
