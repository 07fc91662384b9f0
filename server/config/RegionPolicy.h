// The safety rules of a region, read once from its configuration: how pages show database text,
// the Content-Security-Policy of its responses, whether writes need a POST, how fast one client
// may write from public pages, the guard against markup in visitors' values and folder listings.
// Every default is the safe choice; a region opts out key by key (docs/administrator-guide.md).
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace kiv
{

// Scripts, styles, fonts and images only from the site itself, no plugins, no <base> elsewhere,
// and framing only by the site's own pages.
constexpr std::string_view kDefaultContentSecurityPolicy =
    "default-src 'self'; script-src 'self'; object-src 'none'; base-uri 'self'; frame-ancestors 'self'";

struct RegionPolicy
{
    // Text and long-text values that kivSearchDatabase places in a page are HTML-encoded, so a
    // stored value can never become markup; a tag with rawFields="yes" gets them as stored.
    bool encodeFields = true;
    // Sent with every response of the region; empty: no policy header.
    std::string contentSecurityPolicy{kDefaultContentSecurityPolicy};
    // kivModifyDatabase tags that change databases run only for POST; for GET and HEAD (links,
    // crawlers, prefetching) they show an error box instead.
    bool writesNeedPost = true;
    // Requests whose page writes, per client address and minute, on pages outside the
    // protected paths (each worker counts its own); 0: no limit.
    int publicWritesPerMinute = 60;
    // Pages outside the protected paths refuse a request whose form or query values contain
    // '<' or '>' before any of these tags runs. Off by default while fields are encoded (it
    // would refuse honest values such as "Zed <i>"), on by default when they are not.
    bool refuseMarkup = false;
    std::vector<std::string> refuseMarkupTags{"kivModifyDatabase"};
    // Folders without an index file are listed.
    bool directoryListing = false;
};

// The configuration keys of a [[region]] that RegionPolicy reads.
constexpr std::array<std::string_view, 7> kRegionPolicyKeys = {
    "encode_fields", "content_security_policy", "writes_need_post", "public_write_rate",
    "refuse_markup", "refuse_markup_tags",      "directory_listing"};

} // namespace kiv
