#include "benchDocument.h"

std::string benchDocument(int objects) {
    std::string text =
        R"({"version":1,"restVersion":1,"add":{"objects":[{"name":"/cell/main","type":"cell","objects":[{"name":"/cell/main/cluster/web","type":"cluster","props":{"serverType":"APPLICATION_SERVER"}})";
    std::string pairs;
    const int servers = objects / 10;
    for (int i = 0; i < servers; i++) {
        const std::string node = "/cell/main/node/node" + std::to_string(i / 10);
        if (i % 10 == 0) text += std::string(i ? "]}" : "") + ",{\"name\":\"" + node + "\",\"type\":\"node\",\"objects\":[";
        const std::string server = node + "/server/server" + std::to_string(i);
        text += std::string(i % 10 ? "," : "") + "{\"name\":\"" + server + "\",\"type\":\"server\",\"props\":{\"id\":\"id" +
                std::to_string(i) + R"(","state":"STARTED","weight":2,"type":"APPLICATION_SERVER","connectTimeout":5},"objects":[)";
        for (const char *protocol : {"http", "https"})
            text += "{\"name\":\"" + server + "/transport/" + protocol + R"(","type":"transport","props":{"protocol":")" + protocol +
                    R"(","host":"10.1.2.3","port":9080}},)";
        for (int a = 0; a < 7; a++)
            text += std::string(a ? "," : "") + "{\"name\":\"" + server + "/serverApplication/application" + std::to_string(a) +
                    R"(","type":"serverApplication","props":{"state":"STARTED"}})";
        text += "]}";
        pairs += std::string(i ? "," : "") + R"({"cluster":"/cell/main/cluster/web","server":")" + server + "\"}";
    }
    return text + R"(]}]}],"relationships":{"cluster:server":[)" + pairs + "]}}}";
}
