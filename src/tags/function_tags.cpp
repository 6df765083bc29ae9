// Functions of the page, and running other scripts.

#include <memory>

#include "core/encoding.h"
#include "engine/function.h"
#include "engine/module.h"
#include "engine/script_parser.h"
#include "tags/handlers.h"

namespace vexa {

namespace {

// Makes a module the running one for as long as it lives.
class RunningModule {
 public:
  RunningModule(ScriptParser& caller, Module& module)
      : host_(caller.host()),
        former_(host_.currentmodule()),
        callee_(module.scriptparser()),
        nested_(&callee_ != &caller && callee_.running()),
        own_(callee_.inheritance()) {
    host_.SetCurrentModule(&module);
    callee_.TakeOver(caller.inheritance());
  }
  ~RunningModule() {
    host_.SetCurrentModule(former_);
    if (nested_) callee_.TakeOver(own_);
  }
  RunningModule(const RunningModule&) = delete;
  RunningModule& operator=(const RunningModule&) = delete;

 private:
  Vexa& host_;
  Module* former_;
  ScriptParser& callee_;
  bool nested_;  // the module waits further out for the caller, and goes on as it was
  ScriptParser::Inheritance own_;
};

// Evaluates the kept text of VALUE with the module's functions, into the variable called NAME.
StateResult EvaluateIn(Module& module, const TagCall& call) {
  String value;
  if (!module.scriptparser().EvaluateText(call.Text("VALUE"), value)) return StateResult::Failed;
  return call.Assign(call.Text("NAME"), value);
}

StateResult Run(Module& module) {
  return module.scriptparser().Parse() != 0 ? StateResult::Handled : StateResult::Failed;
}

}  // namespace

StateResult ProcessVxFUNCTION(TagCall& call) {
  if (call.script().InFunction()) {
    return call.SyntaxError("Nested function declarations are not supported");
  }
  return DeclareFunction(call.script(), call.tag());
}

String VxDoProblem(const Tag& tag) {
  if (!tag.Has("VALUE") || tag.Has("NAME")) return {};
  return String::Concat(
      {tag.name(),
       " requires the NAME attribute to be specified when the VALUE attribute is specified"});
}

StateResult ProcessVxDO(TagCall& call) {
  const String& file = call.Text("FILE");
  String message;
  Module* module = call.host().FindModule(file, message);
  if (module == nullptr) return call.Fail(message);
  // A script that is already running, this one included, is run by a parser of its own.
  std::unique_ptr<Module> fresh;
  if (!call.Has("VALUE") && module->scriptparser().running()) {
    fresh = std::make_unique<Module>(call.host(), call.script().tags());
    if (!fresh->Open(module->filepath(), EntityEncoded(file), message)) return call.Fail(message);
    module = fresh.get();
  }
  if (!call.script().PushFunctionCall()) return StateResult::Failed;
  StateResult result;
  {
    RunningModule running(call.script(), *module);
    result = call.Has("VALUE") ? EvaluateIn(*module, call) : Run(*module);
  }
  call.script().PopFunctionCall();
  return result;
}

}  // namespace vexa
