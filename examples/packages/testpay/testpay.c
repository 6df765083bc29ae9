/* The commerce library `testpay`: takes orders and moves no money. Card numbers that end with an
 * even digit are accepted. Each pass of the block tells one thing in the variable `payment`. */

#include <stdlib.h>
#include <vexa/package.h>

VEXA_COMMERCE

struct order {
  int pass;
  int accepted;
  const char *error;
};

static const vexa_field *find(const vexa_commerce *request, const char *name) {
  size_t i;
  for (i = 0; i < request->count; ++i) {
    if (strcmp(request->fields[i].name.bytes, name) == 0) return &request->fields[i];
  }
  return NULL;
}

int vexa_commerce_init(vexa_context *context, const vexa_commerce *request, void **state) {
  const vexa_field *card = find(request, "card");
  struct order *order = (struct order *)calloc(1, sizeof *order);
  (void)context;
  *state = order;
  if (order == NULL) return VEXA_ERROR;
  if (strcmp(request->action.bytes, "authorize") != 0) {
    order->error = "the only action is authorize";
  } else if (card == NULL || card->value.length == 0) {
    order->error = "the field card is missing";
  } else {
    const char last = card->value.bytes[card->value.length - 1];
    order->accepted = last >= '0' && last <= '9' && (last - '0') % 2 == 0;
  }
  return order->error == NULL ? VEXA_OK : VEXA_ERROR;
}

int vexa_commerce_loop(vexa_context *context, void *state) {
  struct order *order = (struct order *)state;
  switch (order->pass++) {
    case 0:
      vexa_set_variable(context, "payment", vexa_string("asked"));
      return VEXA_MORE;
    case 1:
      vexa_set_variable(context, "payment",
                        vexa_string(order->accepted ? "accepted" : "refused"));
      return VEXA_MORE;
    default:
      return VEXA_OK;
  }
}

void vexa_commerce_cleanup(vexa_context *context, void *state) {
  vexa_log(context, vexa_string("order closed"));
  free(state);
}

const char *vexa_commerce_error(vexa_context *context, void *state) {
  (void)context;
  return state == NULL ? "out of memory" : ((struct order *)state)->error;
}
