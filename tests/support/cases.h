#pragma once

#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

using Words = std::vector<std::string>;
/// Operations by the names that cases have for them; see `call`.
using Calls = std::map<std::string, std::function<Words(const Words& arguments)>>;

/// Runs the cases of a file. A case is a run of lines up to an empty one; "#" in front makes a
/// comment. Its steps are taken in their order:
///
///     case: what is special about it
///     call: operation argument... => what it gives
///     shell: command => what it prints
///     operation: its one argument
///
/// Arguments and results are words, in quotes where they hold blanks or are empty. In them \n, \r,
/// \t, \0 and \xHH stand for these bytes, and \c for any other byte c; with *N* after one of them
/// it stands N times. A list is one word, with "|" after each of its texts. Bash runs a command,
/// with the file's directory as $FIXTURES; without "=>" it must succeed. Besides the operations
/// given there are "write" with a path and bytes, "read" with a path, "record_shell" (1: what it
/// records runs as well) and "commands" of sandbox.h. A case leaves no descriptor open.
///
/// @param make_calls  gives the operations of each case anew.
/// @param apart       gives each case a process of its own.
void run_cases(const std::string& path, const std::function<Calls()>& make_calls,
               bool apart = false);
inline void run_cases(const std::string& path, const Calls& calls, bool apart = false) {
  run_cases(
      path, [&calls] { return calls; }, apart);
}

/// Texts in one word, each with "|" after it.
inline std::string joined(const std::vector<std::string>& texts) {
  std::string word;
  for (const std::string& text : texts) word += text + "|";
  return word;
}

/// What a word says as an argument; "null" is a null pointer.
template <class Value>
Value value_of(const std::string& word) {
  if constexpr (sizeof(Value) == 1 && !std::is_same_v<Value, bool>) {
    return static_cast<Value>(word.at(0));
  } else if constexpr (std::is_same_v<Value, const char*>) {
    return word == "null" ? nullptr : word.c_str();
  } else if constexpr (std::is_same_v<Value, std::vector<std::string>>) {
    std::vector<std::string> texts;
    std::istringstream rest(word);
    for (std::string text; std::getline(rest, text, '|');) texts.push_back(text);
    return texts;
  } else if constexpr (std::is_floating_point_v<Value>) {
    return std::stod(word);
  } else if constexpr (std::is_arithmetic_v<Value>) {
    return static_cast<Value>(std::stoull(word, nullptr, 0));  // a minus wraps
  } else {
    return Value(word);
  }
}

template <class Value>
void tell(Words& words, const Value& value) {
  if constexpr (std::is_same_v<Value, std::vector<std::string>>) {
    words.push_back(joined(value));
  } else {
    std::ostringstream text;
    text << value;
    words.push_back(text.str());
  }
}

/// The fields of a record as words.
template <class... Value>
Words texts(const Value&... value) {
  Words words;
  (tell(words, value), ...);
  return words;
}

template <class Argument, class Value>
void tell_changed(Words& words, const Value& value) {
  using Target = std::remove_reference_t<Argument>;
  if constexpr (std::is_lvalue_reference_v<Argument> && !std::is_const_v<Target>)
    tell(words, value);
}

template <class Function, class Result, class... Argument>
auto call_of(Function function, std::function<Result(Argument...)>* /*type*/) {
  return [function](const Words& words) {
    if (words.size() != sizeof...(Argument)) throw std::invalid_argument("number of arguments");
    [[maybe_unused]] auto word = words.begin();
    std::tuple<std::decay_t<Argument>...> values{value_of<std::decay_t<Argument>>(*word++)...};
    Words told;
    try {
      if constexpr (std::is_void_v<Result>) {
        std::apply(function, values);
      } else {
        tell(told, std::apply(function, values));
      }
    } catch (const std::exception&) {
      told.push_back("throws");
    }
    std::apply([&](const auto&... value) { (tell_changed<Argument>(told, value), ...); }, values);
    return told;
  };
}

/// Makes of a function a call for steps. Each argument is a word; what the function returns is
/// told, and then what the arguments hold that it may change.
template <class Function>
auto call(Function function) {
  return call_of(function, static_cast<decltype(std::function(function))*>(nullptr));
}
