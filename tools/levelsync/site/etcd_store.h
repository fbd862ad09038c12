// etcd_store.h - a site in etcd, over the JSON gateway of its version 3.

#ifndef LEVELSYNC_SITE_ETCD_STORE_H
#define LEVELSYNC_SITE_ETCD_STORE_H

#include "failure.h"
#include "site/http.h"
#include "site/store.h"

namespace levelsync
{
/// Empty: nobody in particular.
struct Credentials
{
    std::string user;
    std::string password;
};

class EtcdStore final : public SiteStore
{
public:
    EtcdStore(kor::core::SiteAddress address, Credentials credentials);

    SiteMark mark() override;
    SiteRead read(const std::optional<std::vector<std::string>>& groups) override;
    bool write(const std::vector<SiteWrite>& writes) override;
    std::vector<SiteValue> history(std::size_t most) override;
    std::optional<SiteValue> value(const std::string& key) override;
    void report(const std::string& machine, const std::string& bytes) override;
    void leave(const std::string& machine, const std::string& bytes) override;
    std::vector<SiteMachine> machines() override;

private:
    struct Range;

    Json ask(const std::string& path, const Json& question);
    std::optional<Json> ask_one(
        const kor::core::SiteEndpoint& endpoint, const std::string& path, const Json& question, std::string& problem);
    HttpAnswer post(const kor::core::SiteEndpoint& endpoint, const std::string& path, const std::string& body);
    bool log_in(const kor::core::SiteEndpoint& endpoint, std::string& problem);

    std::string full(const std::string& key) const { return base64_key(m_address.prefix + '/' + key); }
    static std::string base64_key(const std::string& key);
    Json everything_question(Json options) const;
    std::size_t count_of_state(Json& answer);
    std::vector<SiteValue> values_of(const Json& answer) const;
    std::vector<SiteValue>
    pages(const std::string& folder, std::size_t most, std::size_t at_once, bool is_last_first, std::int64_t revision);
    std::string lease(std::int64_t milliseconds);
    bool keep_alive();
    void try_to_report(const std::string& machine, const std::string& bytes);
    void put(const std::string& key, const std::string& bytes, const std::string& lease);

    kor::core::SiteAddress m_address;
    Credentials m_credentials;
    HttpClient m_client;
    std::size_t m_current = 0; // of the endpoints
    bool m_is_unsure = false;  // whether the last question arrived more than once
    bool m_is_careful = true;  // there may be far too much, for all that is known before the first look
    std::string m_token;
    std::string m_presence; // lease of the machine's own words
    std::string m_known;    // lease of what is left of them when it is gone
    std::string m_said;
    std::uint64_t m_said_at = 0; // by the clock that counts from the machine's start
    std::uint64_t m_known_at = 0;
};
} // namespace levelsync

#endif // LEVELSYNC_SITE_ETCD_STORE_H
