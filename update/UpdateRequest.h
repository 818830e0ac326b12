#pragma once

class QNetworkRequest;
class QUrl;

namespace corvane {

/// The request for a manifest or a package at `url`: what is fetched over HTTPS can't be redirected to plain
/// HTTP.
[[nodiscard]] QNetworkRequest updateRequest(const QUrl &url);

/// True if `feed` may be asked for a manifest: over HTTPS alone, without any exception.
[[nodiscard]] bool isAcceptedFeed(const QUrl &feed);

} // namespace corvane
