// gRPC over a Unix-domain socket.

#include <grpcpp/grpcpp.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "bench/peers/Peer.h"
#include "receiver.grpc.pb.h"

namespace bench::peers {
namespace {

constexpr const char* address = "unix:/dev/shm/quillwork-bench-grpc.socket";

class Service final : public wire::Receiver::Service {
 public:
  Service(const Answers& answers, const Orders& orders) : answers_(answers), orders_(orders) {}

  ::grpc::Status Integer(::grpc::ServerContext*, const wire::Nothing*,
                         wire::Number* reply) override {
    reply->set_value(answers_.integer);
    return ::grpc::Status::OK;
  }

  ::grpc::Status List(::grpc::ServerContext*, const wire::Nothing*,
                      wire::Services* reply) override {
    for (const auto& service : answers_.services) {
      wire::Service& added = *reply->add_services();
      added.mutable_values()->Assign(service.values.begin(), service.values.end());
      added.set_name(service.name);
    }
    return ::grpc::Status::OK;
  }

  ::grpc::Status Section(::grpc::ServerContext*, const wire::Nothing*,
                         wire::Bytes* reply) override {
    reply->set_bytes(answers_.section.data(), answers_.section.size());
    return ::grpc::Status::OK;
  }

  ::grpc::Status Notifications(::grpc::ServerContext*, const wire::Nothing*,
                               ::grpc::ServerWriter<wire::Number>* writer) override {
    for (;;) {
      for (std::size_t left = orders_.take(); left > 0; --left) {
        wire::Number number;
        number.set_value(stamp());
        if (!writer->Write(number)) return ::grpc::Status::OK;
      }
    }
  }

 private:
  const Answers& answers_;
  const Orders& orders_;
};

void serve(const Answers& answers, const Orders& orders) {
  Service service(answers, orders);
  ::grpc::ServerBuilder builder;
  builder.AddListeningPort(address, ::grpc::InsecureServerCredentials());
  builder.RegisterService(&service);
  const std::unique_ptr<::grpc::Server> server = builder.BuildAndStart();
  if (server == nullptr) _exit(1);
  server->Wait();
}

void check(const ::grpc::Status& status) {
  if (!status.ok()) throw std::runtime_error("grpc: " + status.error_message());
}

class GrpcConnection : public Connection {
 public:
  GrpcConnection()
      : stub_(wire::Receiver::NewStub(
            ::grpc::CreateChannel(address, ::grpc::InsecureChannelCredentials()))) {
    integer();
    notifications_ = stub_->Notifications(&notificationContext_, {});
  }
  ~GrpcConnection() override { notificationContext_.TryCancel(); }

  std::int32_t integer() override {
    wire::Number reply;
    ::grpc::ClientContext context;
    check(stub_->Integer(&context, {}, &reply));
    return reply.value();
  }

  std::vector<quillwork::client::Service> services() override {
    wire::Services reply;
    ::grpc::ClientContext context;
    check(stub_->List(&context, {}, &reply));
    std::vector<quillwork::client::Service> services;
    services.reserve(static_cast<std::size_t>(reply.services_size()));
    for (wire::Service& service : *reply.mutable_services()) {
      auto& added = services.emplace_back();
      std::copy_n(service.values().begin(),
                  std::min<std::size_t>(static_cast<std::size_t>(service.values_size()), 5),
                  added.values.begin());
      added.name = std::move(*service.mutable_name());
    }
    return services;
  }

  bench::peers::Section section() override {
    wire::Bytes reply;
    ::grpc::ClientContext context;
    check(stub_->Section(&context, {}, &reply));
    return {reply.bytes().begin(), reply.bytes().end()};
  }

  std::int32_t notification() override {
    wire::Number number;
    if (!notifications_->Read(&number)) throw std::runtime_error("grpc: no notification");
    return number.value();
  }

 private:
  std::unique_ptr<wire::Receiver::Stub> stub_;
  ::grpc::ClientContext notificationContext_;
  std::unique_ptr<::grpc::ClientReader<wire::Number>> notifications_;
};

}  // namespace

Peer grpc() {
  return {"gRPC", {}, serve, [] { return std::make_unique<GrpcConnection>(); }};
}

}  // namespace bench::peers
