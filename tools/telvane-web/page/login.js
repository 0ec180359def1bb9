// The password, if the server demands one. It is sent in a header, which no page of another server can send, and the
// server answers with a cookie that scripts cannot read.
import {$, setText} from "/dom.js";
import {t} from "/language.js";

async function session() {
  try {
    return await (await fetch("/api/session", {signal: AbortSignal.timeout(10000)})).json();
  } catch {
    return null; // no connection, which the live stream shows
  }
}

function authorization(password) {
  const bytes = new TextEncoder().encode(`telvane:${password}`);
  return `Basic ${btoa(String.fromCharCode(...bytes))}`;
}

// Shows the form, and returns when the server has let the reader in.
function askForPassword() {
  document.body.classList.add("locked");
  $("view-login").hidden = false;
  $("password").focus();
  return new Promise((resolve) => {
    $("login-form").onsubmit = async (event) => {
      event.preventDefault();
      setText($("login-message"), t("checking"));
      try {
        const answer = await fetch("/api/login", {headers: {Authorization: authorization($("password").value)}});
        const wait = answer.headers.get("Retry-After");
        if (answer.ok) {
          setText($("login-message"), "");
          $("password").value = "";
          $("view-login").hidden = true;
          document.body.classList.remove("locked");
          resolve();
        } else {
          setText($("login-message"), wait ? t("tooManyPasswords", {seconds: wait}) : t("wrongPassword"));
        }
      } catch {
        setText($("login-message"), t("link.lost"));
      }
    };
  });
}

// Called when the connection is lost: asks again if the session is over.
export async function startLogin() {
  const found = await session();
  if (found && !found.open && !document.body.classList.contains("locked")) {
    await askForPassword();
    location.reload();
  }
}

const first = session(); // asked for before anything else

// Returns what the server offers, once the reader is let in.
export async function signIn() {
  const found = (await first) ?? {archive: false, password: false, open: true};
  if (!found.open) {
    await askForPassword();
  }
  $("logout").hidden = !found.password;
  $("logout").onclick = async () => {
    await fetch("/api/logout");
    location.reload();
  };
  return found;
}
