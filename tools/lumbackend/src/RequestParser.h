// One request's head and body out of bytes, by Beast's parser.
#ifndef LUM_BACKEND_REQUEST_PARSER_H
#define LUM_BACKEND_REQUEST_PARSER_H

#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <string>
#include <string_view>

#include "Message.h"

// Fills a Call with the head as it was sent, which Beast's own container of fields does not keep:
// it groups fields of one name. One object a request.
class RequestParser final
    : public boost::beast::http::request_parser<boost::beast::http::empty_body> {
 public:
  static constexpr std::size_t kLongestHead = 65536;      // bytes
  static constexpr std::size_t kLongestLine = 8192;       // of a head
  static constexpr std::size_t kLongestChunkLine = 4096;  // and of the trailers behind the chunks

  explicit RequestParser(Call& call);

  // Takes as much of `bytes` as there is of the head, or of the next piece of the body. What is
  // left is to be given again together with what follows it. Returns the number of bytes taken.
  std::size_t Take(std::string_view bytes);

  // What broke the rules of HTTP, as the status and text of a refusal; 0 when nothing did.
  int RefusalStatus() const { return m_status; }
  const std::string& Refusal() const { return m_refusal; }

  // The part of the body that the last Take() has found.
  std::string_view Piece() const { return m_piece; }

  // The client's side has ended with the head unfinished, or where its bytes are of no use.
  void Refuse(int status, const std::string& text);

 private:
  using Text = boost::beast::string_view;
  using Error = boost::beast::error_code;

  void Judge(const Error& error);
  void CheckHead();

  void on_field_impl(boost::beast::http::field field, Text name, Text value, Error& error) override;
  std::size_t on_body_impl(Text piece, Error& error) override;
  void on_chunk_header_impl(std::uint64_t size, Text extension, Error& error) override;
  std::size_t on_chunk_body_impl(std::uint64_t left, Text piece, Error& error) override;

  Call& m_call;
  std::string m_head;  // as far as it was taken
  std::string_view m_piece;
  int m_status = 0;
  std::string m_refusal;
};

#endif  // LUM_BACKEND_REQUEST_PARSER_H
