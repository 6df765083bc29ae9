/* Runs a program and writes its processor time in microseconds and its memory in kB to a file.
 *
 *   measure FILE PROGRAM [ARGUMENT...]
 *
 * A program of its own because it is small: a process begins with the memory of the one that made
 * it, which would hide what a page needs. */

#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char** argv) {
  struct rusage usage;
  int status;
  if (argc < 3) return 2;
  pid_t child = fork();
  if (child == 0) {
    execvp(argv[2], argv + 2);
    _exit(127);
  }
  if (child < 0 || wait4(child, &status, 0, &usage) < 0) return 1;
  FILE* file = fopen(argv[1], "w");
  if (!file) return 1;
  fprintf(file, "%ld %ld\n",
          (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000000L + usage.ru_utime.tv_usec +
              usage.ru_stime.tv_usec,
          usage.ru_maxrss);
  return fclose(file) != 0;
}
