#include "tools/status_mqtt/connection.h"

#include <netdb.h>
#include <openssl/ssl.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include <mqtt_protocol.h>

namespace {

constexpr int at_least_once = 1;  // QoS
constexpr bool retained = true;

/// From this code on, a reason of MQTT 5 is a failure.
constexpr int first_failure = MQTT_RC_UNSPECIFIED;

}  // namespace

std::string topic_of(const Options& options, const std::string& name)
{
    return options.prefix + "/" + options.device + "/" + name;
}

Connection::Connection(const Options& options)
    : options_(options),
      client_(mosquitto_new(options.device.c_str(), true, this), &mosquitto_destroy)
{
    if (!client_) {
        throw std::system_error(errno, std::generic_category(), "mosquitto_new");
    }
    mosquitto_log_callback_set(client_.get(), on_log);
    mosquitto_connect_v5_callback_set(client_.get(), on_connect);
    mosquitto_disconnect_v5_callback_set(client_.get(), on_disconnect);
    mosquitto_publish_v5_callback_set(client_.get(), on_publish);
    check(connect());
}

int Connection::connect()
{
    const auto text_or_null = [](const std::string& text) {
        return text.empty() ? nullptr : text.c_str();
    };
    mosquitto* const client = client_.get();
    int error = mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    if (error == MOSQ_ERR_SUCCESS) {
        error = mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
    }
    if (error == MOSQ_ERR_SUCCESS) {
        constexpr std::string_view will = "offline";
        error = mosquitto_will_set_v5(client, topic_of(options_, "availability").c_str(),
                                      static_cast<int>(will.size()), will.data(), at_least_once,
                                      retained, nullptr);
    }
    if (error == MOSQ_ERR_SUCCESS) {
        error = mosquitto_username_pw_set(client, text_or_null(options_.user),
                                          text_or_null(options_.password));
    }
    if (error == MOSQ_ERR_SUCCESS && !options_.ca.empty()) {
        error = mosquitto_tls_set(client, options_.ca.c_str(), nullptr, text_or_null(options_.cert),
                                  text_or_null(options_.key), nullptr);
    }
    if (error == MOSQ_ERR_SUCCESS) {
        // Not asynchronously: that would try the first address of the name only.
        error = mosquitto_connect_bind_v5(client, options_.host.c_str(), options_.port,
                                          options_.keepalive_s, nullptr, nullptr);
    }
    return error;
}

pollfd Connection::poll_entry() const
{
    const bool has_to_write = mosquitto_want_write(client_.get());
    return {mosquitto_socket(client_.get()),
            static_cast<short>(has_to_write ? POLLIN | POLLOUT : POLLIN), 0};
}

void Connection::work(short returned_events)
{
    constexpr int packets = 1;  // the library takes no notice of it
    if (!has_ended() && (returned_events & ~POLLOUT) != 0) {
        check(mosquitto_loop_read(client_.get(), packets));
    }
    if (!has_ended() && (returned_events & POLLOUT) != 0) {
        check(mosquitto_loop_write(client_.get(), packets));
    }
    if (!has_ended()) {
        check(mosquitto_loop_misc(client_.get()));
    }
}

int Connection::publish(const std::string& topic, const std::string& payload, std::string& problem)
{
    int message = 0;
    const int error = mosquitto_publish_v5(client_.get(), &message, topic.c_str(),
                                           static_cast<int>(payload.size()), payload.data(),
                                           at_least_once, retained, nullptr);
    problem = error == MOSQ_ERR_SUCCESS ? "" : "can't be sent: " + text_of(error);
    return error == MOSQ_ERR_SUCCESS ? message : 0;
}

std::vector<Connection::Answer> Connection::take_answers()
{
    return std::exchange(answers_, {});
}

// --- why it ended ---

void Connection::check(int error)
{
    if (error != MOSQ_ERR_SUCCESS && end_.empty()) {
        end_ = text_of(error);
    }
}

/// What the TLS library says is nearer to the cause than what it has led to.
std::string Connection::text_of(int error) const
{
    if (!complaint_.empty()) {
        return complaint_;
    }
    switch (error) {
        case MOSQ_ERR_ERRNO:
            return std::strerror(errno);
        case MOSQ_ERR_EAI:
            return gai_strerror(errno);
        case MOSQ_ERR_KEEPALIVE:
            return "no answer";
        default:
            return mosquitto_strerror(error);
    }
}

/// The library logs what goes wrong with TLS, the cause first, while the session is still there,
/// which knows what is wrong with the broker's certificate.
void Connection::on_log(mosquitto* client, void* self, int level, const char* text)
{
    std::string& complaint = static_cast<Connection*>(self)->complaint_;
    if (level != MOSQ_LOG_ERR || !complaint.empty()) {
        return;
    }
    complaint = text;
    auto* const session = static_cast<SSL*>(mosquitto_ssl_get(client));
    const long verdict = session == nullptr ? X509_V_OK : SSL_get_verify_result(session);
    if (verdict != X509_V_OK && verdict != X509_V_ERR_UNSPECIFIED) {
        complaint += std::string(": ") + X509_verify_cert_error_string(verdict);
    }
}

void Connection::on_connect(mosquitto* /*client*/, void* self, int reason, int /*flags*/,
                            const mosquitto_property* /*properties*/)
{
    auto& connection = *static_cast<Connection*>(self);
    connection.accepted_ = reason == MQTT_RC_SUCCESS;
    if (!connection.accepted_) {
        connection.end_ = std::string("the broker refuses the connection: ") +
                          (reason < first_failure ? mosquitto_connack_string(reason)
                                                  : mosquitto_reason_string(reason));
    }
}

void Connection::on_disconnect(mosquitto* /*client*/, void* self, int reason,
                               const mosquitto_property* /*properties*/)
{
    auto& connection = *static_cast<Connection*>(self);
    if (!connection.end_.empty()) {
        return;
    }
    if (reason == MQTT_RC_SESSION_TAKEN_OVER) {
        connection.end_ = "another client has the name " + connection.options_.device +
                          ": each device needs a name of its own";
    } else if (reason >= first_failure) {
        connection.end_ =
            std::string("the broker ends the connection: ") + mosquitto_reason_string(reason);
    } else {
        connection.end_ = connection.text_of(reason);
    }
}

void Connection::on_publish(mosquitto* /*client*/, void* self, int message, int reason,
                            const mosquitto_property* /*properties*/)
{
    const bool is_taken = reason < first_failure;
    static_cast<Connection*>(self)->answers_.push_back(
        {message,
         is_taken ? "" : std::string("the broker refuses it: ") + mosquitto_reason_string(reason)});
}
