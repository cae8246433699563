<%@ page contentType="text/html;charset=UTF-8" session="false" trimDirectiveWhitespaces="true" %>
<%
    // Who answers, and how often this session was here: as a line for a terminal, as a page for a browser.
    String server = System.getProperty("shop.route");
    String edition = application.getInitParameter("edition");
    HttpSession visit = request.getSession();
    if (request.getParameter("leave") != null) {
        visit.invalidate();
        response.sendRedirect(request.getContextPath() + "/");
        return;
    }
    int hits = 1;
    synchronized (visit) {
        if (visit.getAttribute("hits") != null) hits += (Integer) visit.getAttribute("hits");
        visit.setAttribute("hits", hits);
    }
    String accept = request.getHeader("Accept");
    if (accept == null || !accept.contains("text/html")) {
        response.setContentType("text/plain;charset=UTF-8");
        out.println(server + "  edition " + edition + "  visit " + hits + "  of session " + visit.getId());
        return;
    }
    String color = server.endsWith("1") ? "#2563eb" : "#b45309";
%>
<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8"><meta name="viewport" content="width=device-width"><title>Shop on <%= server %></title>
<style>
  body { font: 16px/1.5 system-ui, sans-serif; margin: 0; min-height: 100vh; display: grid; place-items: center; background: #f1f5f9; color: #0f172a }
  main { background: #fff; border-top: 6px solid <%= color %>; border-radius: 10px; box-shadow: 0 2px 16px #0002; padding: 2rem 2.5rem; max-width: 34rem }
  h1 { margin: 0 0 1rem; font-size: 1.7rem } h1 b { color: <%= color %> }
  dl { display: grid; grid-template-columns: auto 1fr; gap: .3rem 1.2rem; margin: 0 0 1.5rem } dt { color: #64748b } dd { margin: 0; word-break: break-all }
  a { display: inline-block; padding: .5rem 1rem; margin-right: .6rem; border-radius: 6px; text-decoration: none; background: <%= color %>; color: #fff }
  a.second { background: #e2e8f0; color: #0f172a }
</style>
</head>
<body>
<main>
  <h1>You are on <b><%= server %></b></h1>
  <dl>
    <dt>edition</dt><dd><%= edition %></dd>
    <dt>visit</dt><dd><%= hits %></dd>
    <dt>session</dt><dd><%= visit.getId() %></dd>
    <dt>kept by</dt><dd><%= request.isRequestedSessionIdFromURL() ? "the URL" : request.isRequestedSessionIdFromCookie() ? "a cookie" : "not yet" %></dd>
  </dl>
  <a href="<%= response.encodeURL("./") %>">visit again</a><a class="second" href="?leave=1">a new session</a>
</main>
</body>
</html>
