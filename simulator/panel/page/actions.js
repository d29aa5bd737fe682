// Doing something with the unit: the words of a command of the gateway program. They go out one after another, so that
// a button is never let go before it is pressed.
import { toast } from "./toasts.js";

let last = Promise.resolve();

async function send(words) {
  const answer = await fetch("/api/action", {
    method: "POST",
    headers: { "Content-Type": "application/json" },
    body: JSON.stringify({ words }),
    keepalive: true,
  });
  if (answer.ok) return;
  const { error } = await answer.json().catch(() => ({}));
  throw new Error(error ?? `the panel answered ${answer.status}`);
}

/// Does an action. Returns whether it was done; what kept it from that is shown.
export function act(...words) {
  const sent = last.then(() => send(words.map(String)));
  last = sent.catch(() => {});
  return sent.then(
    () => true,
    (error) => {
      toast(`${words.join(" ")}: ${error.message}`);
      return false;
    },
  );
}

/// What the panel answers to a question.
export async function ask(path) {
  const answer = await fetch(path);
  if (!answer.ok) throw new Error(`the panel answered ${answer.status}`);
  return answer.json();
}
