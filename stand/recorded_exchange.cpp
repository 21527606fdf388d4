// Copies requests and replies for the event log, which shows them on the page and through the control
// interface. Front calls it for each request; bodies are limited, since the log holds thousands of them.
#include "stand/recorded_exchange.h"

namespace CryptStand {
namespace {

// A string on the heap, two sizes and the entry of the vector: near enough for a limit of memory.
constexpr std::size_t kWeightOfHeader = 96;

void RecordBody(const std::string& body, RecordedMessage& message) {
  message.size = body.size();
  message.body = body.substr(0, kMaxRecordedBody);
  message.isTruncated = body.size() > kMaxRecordedBody;
}

// The rest is not produced: a generated audit log may have millions of lines.
void RecordStream(const BodySource& next, RecordedMessage& message) {
  std::string chunk = next();
  while (!chunk.empty() && message.body.size() < kMaxRecordedBody) {
    message.body += chunk;
    chunk = next();
  }
  message.isTruncated = !chunk.empty() || message.body.size() > kMaxRecordedBody;
  if (message.body.size() > kMaxRecordedBody) message.body.resize(kMaxRecordedBody);
  message.size = message.body.size();
}

std::size_t WeightOf(const RecordedMessage& message) {
  std::size_t weight = message.body.size();
  for (const auto& [name, value] : message.headers) weight += name.size() + value.size() + kWeightOfHeader;
  return weight;
}

}  // namespace

std::size_t RecordedExchange::GetWeight() const {
  return sizeof *this + WeightOf(request) + WeightOf(response);
}

RecordedExchange RecordExchange(const HttpRequest& request, const HttpReply& reply) {
  RecordedExchange exchange;
  exchange.request.headers = request.headers;
  RecordBody(request.body, exchange.request);
  exchange.response.headers.emplace_back("Content-Type", reply.contentType);
  exchange.response.headers.insert(exchange.response.headers.end(), reply.headers.begin(),
                                   reply.headers.end());
  if (reply.openBody) {
    RecordStream(reply.openBody(), exchange.response);
  } else {
    RecordBody(reply.body, exchange.response);
  }
  return exchange;
}

}  // namespace CryptStand
