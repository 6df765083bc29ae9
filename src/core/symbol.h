// Symbol: a name of the language, folded and hashed once. Two names are the same, letter case
// ignored, exactly when their symbols are equal, which is one comparison of pointers.
//
// Symbols live as long as the process, so that trees, attributes and scopes can hold them without
// owning them. Each has a small number of its own, counted from 0, by which scopes find variables.
// The table of all symbols is hashed with a number that the system drew for this process: who
// chooses names cannot choose where they fall.

#ifndef VEXA_CORE_SYMBOL_H_
#define VEXA_CORE_SYMBOL_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vexa {

// The kinds of scopes in which a name has ever stood, so that a look into a scope that cannot know
// it is left out. Only ever added to.
using ScopeKinds = uint8_t;
inline constexpr ScopeKinds kSystemKind = 1;
inline constexpr ScopeKinds kLocalKind = 2;
inline constexpr ScopeKinds kGlobalKind = 4;
inline constexpr ScopeKinds kFieldKind = 8;

class Symbol {
 public:
  // No name at all.
  constexpr Symbol() = default;
  // The symbol of `name`, made when there is none yet.
  explicit Symbol(std::string_view name) : entry_(Look(name, Missing::Make)) {}
  // The symbol of `name`, or none when nothing was ever called so.
  [[nodiscard]] static Symbol Known(std::string_view name) {
    return Symbol(Look(name, Missing::LeaveOut));
  }

  // The bytes that the names known so far take: whoever serves strangers for long should watch
  // them.
  [[nodiscard]] static size_t TakenBytes();

  [[nodiscard]] explicit operator bool() const { return entry_ != nullptr; }
  friend bool operator==(Symbol, Symbol) = default;
  // The name in upper case; empty for no name. Valid for ever.
  [[nodiscard]] std::string_view text() const {
    return entry_ == nullptr ? std::string_view() : std::string_view(entry_->text, entry_->length);
  }
  // REQUIRES of the rest: it is a name.
  [[nodiscard]] uint32_t number() const { return entry_->number; }
  [[nodiscard]] ScopeKinds kinds() const { return entry_->kinds; }
  // Whether any of them is new.
  bool AddKinds(ScopeKinds kinds) const {
    const ScopeKinds former = entry_->kinds;
    entry_->kinds |= kinds;
    return entry_->kinds != former;
  }

 private:
  friend class SymbolTable;
  enum class Missing { Make, LeaveOut };
  struct Entry {
    uint64_t hash;
    const char* text;  // padded with zeros to a multiple of eight bytes
    uint32_t length;
    uint32_t number;
    ScopeKinds kinds;
  };
  explicit Symbol(Entry* entry) : entry_(entry) {}
  static Entry* Look(std::string_view name, Missing missing);

  Entry* entry_ = nullptr;
};

}  // namespace vexa

#endif  // VEXA_CORE_SYMBOL_H_
