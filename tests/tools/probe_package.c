/* A package that does what packages may do, and what they must not. Built by the tests of packages;
 * macros make the variants: CODE, ABI, INIT, CONSTRUCTOR. */

#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vexa/package.h>

#ifndef CODE
#define CODE "probe"
#endif
#ifndef ABI
#define ABI VEXA_ABI
#endif
#ifndef INIT
#define INIT 0
#endif

#define FUNCTION(name) \
  static int name(vexa_context* c, void* data, const vexa_text* a, size_t count)
#define UNUSED (void)data, (void)count, (void)a, (void)c

static vexa_context* kept;

FUNCTION(echo) {
  UNUSED;
  return vexa_set_result(c, a[0]);
}
FUNCTION(wide) {
  UNUSED;
  return vexa_set_result(c, vexa_bytes("a\0\xE4<", 4));
}
FUNCTION(silent) {
  UNUSED;
  return 7;
}
FUNCTION(loud) {
  UNUSED;
  vexa_set_error(c, vexa_string("<b>no</b>"));
  return VEXA_ERROR;
}
FUNCTION(get) {
  vexa_text value = {0, 0};
  UNUSED;
  return vexa_get_variable(c, a[0].bytes, &value) == VEXA_OK ? vexa_set_result(c, value)
                                                             : VEXA_ERROR;
}
FUNCTION(set) {
  UNUSED;
  if (vexa_set_variable(c, a[0].bytes, a[1]) == VEXA_OK) return VEXA_OK;
  return vexa_set_result(c, vexa_error(c));
}
FUNCTION(eval) {
  vexa_text value = {0, 0};
  UNUSED;
  return vexa_evaluate(c, a[0], &value) == VEXA_OK ? vexa_set_result(c, value) : VEXA_ERROR;
}
FUNCTION(put) {
  UNUSED;
  vexa_write(c, a[0]);
  return vexa_write_encoded(c, a[0]);
}
FUNCTION(path) {
  vexa_text value = {0, 0};
  UNUSED;
  if (vexa_resolve_path(c, a[0].bytes[0] - '0', a[1], &value) == VEXA_OK)
    return vexa_set_result(c, value);
  return vexa_set_result(c, vexa_error(c));
}
struct visit {
  vexa_context* context;
  char text[2000];
};
static int visitor(void* data, const vexa_field* field) {
  struct visit* visit = (struct visit*)data;
  strncat(visit->text, field->name.bytes, 100);
  strncat(strcat(visit->text, "="), field->value.bytes, 100);
  vexa_set_variable(visit->context, field->name.bytes, vexa_string("seen"));
  return strcmp(field->name.bytes, "STOP") == 0 ? 5 : (strcat(visit->text, " "), VEXA_OK);
}
FUNCTION(each) {
  struct visit visit = {0, ""};
  int end;
  UNUSED;
  visit.context = c;
  end = vexa_each_variable(c, a[0].bytes[0] - '0', visitor, &visit);
  sprintf(visit.text + strlen(visit.text), "%d", end);
  return vexa_set_result(c, vexa_string(visit.text));
}
FUNCTION(late) {
  UNUSED;
  return vexa_add_function(c, "more", "", echo, 0) == VEXA_ERROR ? vexa_set_result(c, vexa_error(c))
                                                                 : VEXA_OK;
}
FUNCTION(keep) {
  UNUSED;
  kept = c;
  return VEXA_OK;
}
FUNCTION(stale) {
  char room[64];
  UNUSED;
  memset(room, 1, sizeof room);
  return vexa_write(kept == c ? c : kept, a[0]) == VEXA_ERROR
             ? vexa_set_result(c, vexa_string("refused"))
             : VEXA_OK;
}
static void* in_thread(void* context) {
  return (void*)(intptr_t)vexa_write((vexa_context*)context, vexa_string("thread"));
}
static void* thread_crash(void* nothing) {
  *(volatile int*)nothing = 1;
  return nothing;
}
FUNCTION(thread) {
  pthread_t id;
  void* result = 0;
  UNUSED;
  pthread_create(&id, 0, a[0].length ? thread_crash : in_thread, a[0].length ? 0 : c);
  pthread_join(id, &result);
  return vexa_set_result(c, vexa_string((intptr_t)result == VEXA_ERROR ? "refused" : "wrote"));
}
static int deep(int n) {
  volatile char room[4096];
  room[n % 4096] = 1;
  return n == 0x7FFFFFFF ? 0 : deep(n + 1) + room[n % 4096];
}
FUNCTION(crash) {
  UNUSED;
  switch (a[0].bytes[0]) {
    case 's':
      *(volatile int*)0 = 1;
      break;
    case 'a':
      abort();
    case 'e':
      exit(3);
    case 'd':
      return deep(0);
    case 'w':
      vexa_write(c, vexa_bytes((const char*)16, 5));
      break;
    case 't':
      ((vexa_interface*)(uintptr_t)c->calls)->write = 0;
      break;
    case 'f':
      if (fork() == 0) exit(3);
      wait(0);
      break;
    case 'l':
      for (;;) {
        volatile int i = 0;
        (void)i;
      }
    default:
      raise(atoi(a[0].bytes));
  }
  return VEXA_OK;
}

/* What the process is: ids, groups and umask as the system tells them, and its directory. */
FUNCTION(self) {
  char text[8000] = "";
  FILE* file = fopen("/proc/self/status", "r");
  UNUSED;
  text[file ? fread(text, 1, 6000, file) : 0] = 0;
  strcat(text, getenv("PYTHONPATH") ? "Environment:\ttheirs\nDirectory:\t"
                                    : "Environment:\t\nDirectory:\t");
  return getcwd(text + strlen(text), 1000) ? vexa_set_result(c, vexa_string(text)) : VEXA_ERROR;
}

static int init(vexa_context* c) {
  static const struct {
    const char *name, *parameters;
    vexa_function function;
  } all[] = {{"echo", "text", echo},   {"wide", "", wide},        {"silent", "", silent},
             {"loud", "", loud},       {"get", "name", get},      {"set", "name, value", set},
             {"eval", "text", eval},   {"put", "text", put},      {"path", "root, name", path},
             {"each", "scope", each},  {"late", "", late},        {"keep", "", keep},
             {"stale", "text", stale}, {"thread", "how", thread}, {"crash", "how", crash},
             {"self", "", self}};
  static const char* const refused[] = {"echo", "ECHO", "vexa_x", "1a", "a-b", "", "len"};
  size_t i;
  for (i = 0; i < sizeof all / sizeof *all; ++i) {
    if (vexa_add_function(c, all[i].name, all[i].parameters, all[i].function, 0) != VEXA_OK)
      return VEXA_ERROR;
  }
  for (i = 0; i < sizeof refused / sizeof *refused; ++i) {
    if (vexa_add_function(c, refused[i], "", echo, 0) != VEXA_ERROR) return VEXA_ERROR;
  }
  if (vexa_add_function(c, "list", "a,b", echo, 0) != VEXA_ERROR) return VEXA_ERROR;
  if (vexa_add_variable(c, "probe_state", vexa_string("ready")) != VEXA_OK) return VEXA_ERROR;
  if (INIT == 1) return VEXA_ERROR;
  if (INIT == 2) {
    vexa_set_error(c, vexa_string("out of <paper>"));
    return VEXA_ERROR;
  }
  if (INIT == 3) {
    vexa_text v;
    vexa_evaluate(c, vexa_string("back()"), &v);
  }
  return VEXA_OK;
}
static void cleanup(vexa_context* c) {
  vexa_text value;
  vexa_get_variable(c, "probe_state", &value);
  vexa_log(c, value);
  if (vexa_write(c, value) == VEXA_ERROR && vexa_allocate(c, 1) == 0)
    vexa_log(c, vexa_string("no page"));
}

VEXA_COMMERCE
int vexa_commerce_init(vexa_context* c, const vexa_commerce* request, void** state) {
  return (void)c, (void)state, request->action.length == 0 ? VEXA_OK : VEXA_ERROR;
}
int vexa_commerce_loop(vexa_context* c, void* state) { return (void)c, (void)state, VEXA_OK; }
void vexa_commerce_cleanup(vexa_context* c, void* state) {
  vexa_text value;
  (void)state, vexa_evaluate(c, vexa_string("1 +"), &value);
}
const char* vexa_commerce_error(vexa_context* c, void* state) {
  return (void)c, (void)state, (const char*)16;
}

#ifdef CONSTRUCTOR
__attribute__((constructor)) static void begin(void) { raise(SIGSEGV); }
#endif

const vexa_package vexa_package_entry = {ABI, sizeof(vexa_package), CODE, "1", init, cleanup};
