// The clients, arguments and files of one caller: what every operation is called with.

#ifndef LUM_TEST_OPERATIONS_CALLER_H
#define LUM_TEST_OPERATIONS_CALLER_H

#include <LumApollo.h>
#include <LumCurlHttp.h>
#include <LumCurlOrvOps.h>

#include <cstdio>
#include <list>
#include <memory>
#include <string>

#include "support/Files.h"

namespace lumtest {

// A thread has one of its own, or shares one where that is allowed.
class Caller {
 public:
  // What a suite does immediately before and after the product is called: arguments have been made
  // by then, and results are looked at later.
  class Around {
   public:
    virtual ~Around() = default;
    virtual void Begin() = 0;
    virtual void End() = 0;
  };

  // The clients initialise libcurl, unless told not to.
  explicit Caller(bool initialise = true);
  Caller(const Caller&) = delete;
  Caller& operator=(const Caller&) = delete;

  void Initialise();

  template <typename Call>
  auto Try(Call call) {
    const Bracket bracket(around);
    return call();
  }

  static LumJson::Value UsualDocument();

  // Gives each client a certificate, for servers that ask for one.
  void OfferCertificate(const std::string& ca, const std::string& certificate,
                        const std::string& key, std::string phrase);

  // The files of one operation lie in a directory named after it, so that operations may run side
  // by side; of one thread, in a directory of its own.
  std::string MakeFiles(const std::string& name) const;

  LumCurlHttp general;
  LumCurlOrvOps service;
  LumCurlOrvOps signedService;  // with the settings of a signed upload
  LumApollo apollo;
  bool shared = false;       // by threads: the last error may be another's, and is not looked at
  Around* around = nullptr;  // null: nothing

  // Arguments. `text` is what settings are given.
  LumJson::Value document = UsualDocument();
  std::string body = document.ToStyledString();
  bool useSsl = false;  // of LumCurlHttp's requests
  std::string token = "token";
  std::string identifier = "id";
  std::string fileName = "a.log";
  std::string topic;
  std::list<std::string> lines = {"X-A: 1"};
  std::string text = "a text of more than fifteen characters";
  unsigned char passPhrase[12] = "pass phrase";
  std::unique_ptr<FILE, int (*)(FILE*)> stream{nullptr, &std::fclose};  // to upload from
  std::string content = "the content of a log\n";                       // of the files to upload

 private:
  class Bracket {
   public:
    explicit Bracket(Around* around) : m_around(around) {
      if (m_around != nullptr) {
        m_around->Begin();
      }
    }
    ~Bracket() {
      if (m_around != nullptr) {
        m_around->End();
      }
    }
    Bracket(const Bracket&) = delete;
    Bracket& operator=(const Bracket&) = delete;

   private:
    Around* const m_around;
  };

  TempDir m_directory;
};

}  // namespace lumtest

#endif  // LUM_TEST_OPERATIONS_CALLER_H
