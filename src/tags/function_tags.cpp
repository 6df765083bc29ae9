// VxFUNCTION and VxDO.

#include "tags/function_tags.h"

#include <memory>

#include "core/encoding.h"
#include "engine/function_declaration.h"
#include "engine/module.h"
#include "engine/script_parser.h"

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
        own_(callee_.settings()) {
    host_.SetCurrentModule(&module);
    callee_.TakeOver(caller.settings());
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
  ScriptParser::CallSettings own_;
};

// Evaluates the kept text of VALUE with the module's functions, into the variable called NAME.
StateResult EvaluateIn(Module& module, ScriptParser& parser, const Tag& tag) {
  String value;
  if (!module.scriptparser().EvaluateText(tag.Value("VALUE"), value)) return StateResult::Failed;
  return parser.Assign(tag, tag.Value("NAME"), value);
}

}  // namespace

StateResult ProcessVxFUNCTION(ScriptParser& parser, Tag& tag) {
  if (parser.InFunction()) {
    return parser.SyntaxError("Nested function declarations are not supported");
  }
  return DeclareFunction(parser, tag);
}

StateResult ProcessVxDO(ScriptParser& parser, Tag& tag) {
  if (tag.Has("VALUE") && !tag.Has("NAME")) {
    return parser.SyntaxError(String::Concat(
        {tag.name(),
         " requires the NAME attribute to be specified when the VALUE attribute is specified"}));
  }
  String message;
  Module* module = parser.host().FindModule(tag.Value("FILE"), message);
  if (module == nullptr) return parser.RuntimeError(tag, message);
  // A script that is already running, this one included, is run by a parser of its own.
  std::unique_ptr<Module> fresh;
  if (!tag.Has("VALUE") && module->scriptparser().running()) {
    fresh = std::make_unique<Module>(parser.host());
    if (!fresh->Open(module->filepath(), EntityEncoded(tag.Value("FILE")), message)) {
      return parser.RuntimeError(tag, message);
    }
    module = fresh.get();
  }
  if (!parser.PushFunctionCall()) return StateResult::Failed;
  StateResult result;
  {
    RunningModule running(parser, *module);
    if (tag.Has("VALUE")) {
      result = EvaluateIn(*module, parser, tag);
    } else {
      result = module->scriptparser().Parse() != 0 ? StateResult::Handled : StateResult::Failed;
    }
  }
  parser.PopFunctionCall();
  return result;
}

}  // namespace vexa
