// The connection to the door: the session, what is live, and what is asked for.

const JSON_TYPE = { "Content-Type": "application/json" };

const answerOf = async (response) => {
  const body = await response.json();
  if (!response.ok) throw Object.assign(new Error(body.error), { status: response.status });
  return body;
};

const post = async (path, body) =>
  answerOf(await fetch(path, { method: "POST", headers: JSON_TYPE, body: JSON.stringify(body) }));

export const session = async () => answerOf(await fetch("/api/session"));
export const enter = (link) => post("/api/session", { link });
export const leave = async () => answerOf(await fetch("/api/session", { method: "DELETE" }));
export const ask = (command, fields = {}) => post("/api/command", { command, ...fields });

// Calls what the listener has for "status", "away", "timeline" and "entry", "lost" when the connection is lost, and
// "out" when nobody is logged in any more. The browser connects again by itself, and goes on behind its last entry.
export const lookOn = (listener) => {
  const source = new EventSource("/api/events");
  for (const name of ["status", "away", "timeline", "entry"]) {
    source.addEventListener(name, (event) => listener[name](JSON.parse(event.data)));
  }
  source.onerror = async () => {
    listener.lost();
    const now = await session().catch(() => null);
    if (now && now.role === null) {
      source.close();
      listener.out();
    } else if (source.readyState === EventSource.CLOSED) {
      setTimeout(() => lookOn(listener), 2000);  // it was refused: there is no room, say
    }
  };
  return source;
};
