#pragma once

#include <cstddef>
#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "kora-solve/backend.h"
#include "kora-solve/check.h"
#include "kora-solve/refusals.h"
#include "kora/model/model_store.h"
#include "kora/smtlib/script.h"
#include "kora/terms/term_manager.h"

namespace kora::solve {

struct SessionOptions {
  CheckOptions check;
  bool stats = false;
};

// kora-solve's command loop: answers a script as an SMT-LIB solver does,
// each check-sat solved from scratch over the assertions in scope.
class Session {
 public:
  Session(const Backend& backend, SessionOptions options, std::ostream& out, std::ostream& err);

  // Answers every command of the script; 0 when all were answered, 1 when
  // some were refused, 2 (with a message on err) when out cannot be written.
  // Throws BackendMissing when the back end cannot start.
  int run(std::istream& in, const std::string& file_name);

 private:
  // Levels opened together, with as many assertions before them.
  struct Level {
    std::size_t assertions;
    std::size_t count;
  };

  void execute(const smtlib::Command& c, const smtlib::ScriptReader& reader);
  void refused(const smtlib::ScriptReader& reader);
  void answer_unknown(const std::string& reason);
  void push(std::size_t levels);
  int output_failed();
  void check(const std::vector<const Term*>& assumptions, const smtlib::ScriptReader& reader);
  void set_option(const smtlib::Command& c);
  void get_info(const std::string& keyword);
  void get_option(const std::string& keyword);
  void get_value(const smtlib::Command& c);
  void get_assignment(const smtlib::ScriptReader& reader);
  void pop(std::size_t levels);
  bool need_model();
  const Term* value_of(const Term* t);
  void success();
  void error(const std::string& message);

  const Backend& backend_;
  SessionOptions options_;
  std::ostream& out_;
  std::ostream& err_;
  TermManager mgr_;
  std::vector<const Term*> assertions_;
  // How each assertion was written (null: not kept).
  std::vector<std::shared_ptr<const smtlib::WrittenTerm>> forms_;
  std::vector<Level> scopes_;
  std::size_t depth_ = 0;  // levels open
  Refusals refusals_;
  std::unique_ptr<ModelStore> model_;
  bool answered_ = false;  // a check-sat was answered since the assertions last changed
  Status status_ = Status::Unknown;
  std::string reason_;
  bool print_success_ = false;
  // The options set-option accepts, as last set (:print-success is above).
  bool produce_models_ = false;
  bool produce_assignments_ = false;
  // Every check-sat's statistics added up, for (get-info :all-statistics).
  CheckStats total_;
  bool refused_ = false;
  double read_seconds_ = 0;
};

}  // namespace kora::solve
