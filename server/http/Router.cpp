#include "http/Router.h"

namespace quellora::server {

void Router::get(const std::string &path, Handler handler, Lane lane)
{
    m_get[path] = Route{path, std::move(handler), 0, lane};
}

void Router::post(const std::string &path, std::size_t bodyLimit, Handler handler, Lane lane)
{
    m_post[path] = Route{path, std::move(handler), bodyLimit, lane};
}

const Route *Router::find(const std::string &method, const std::string &path) const
{
    if (method == "GET" || method == "HEAD")
        return find(m_get, path);
    return method == "POST" ? find(m_post, path) : nullptr;
}

const Route *Router::find(const Routes &routes, const std::string &path)
{
    if (path.ends_with('*'))
        return nullptr;
    if (const auto exact = routes.find(path); exact != routes.end())
        return &exact->second;
    for (std::size_t slash = path.rfind('/'); slash != std::string::npos && slash > 0;
         slash = path.rfind('/', slash - 1)) {
        if (const auto below = routes.find(path.substr(0, slash) + "/*"); below != routes.end())
            return &below->second;
    }
    return nullptr;
}

} // namespace quellora::server
