// Signing in. Where one wanted to go stays in the address.
import {h, setText} from './dom.js';
import {ask} from './api.js';
import {explain, field} from './parts.js';
import {texts} from './texts.js';

/// `done(session)` once somebody is in.
export function signInView(done) {
  const words = texts.signIn;
  const user = h('input', {name: 'username', autocomplete: 'username', autocapitalize: 'none', required: true, maxlength: 64});
  const password = h('input', {name: 'password', type: 'password', autocomplete: 'current-password', required: true, maxlength: 1024});
  const fault = h('p', {class: 'bad', role: 'alert'});
  const button = h('button', {class: 'primary'}, words.submit);
  const form = h('form', {class: 'signin panel', onsubmit: async (event) => {
    event.preventDefault();
    button.disabled = true;
    setText(fault, '');
    try {
      done(await ask('POST', 'session', {body: {user: user.value, password: password.value}, signingIn: true}));
    } catch (error) {
      setText(fault, error.status === 401 ? words.wrong : error.status === 429 ? words.wait(error.retryAfter || 1) : texts.failed(explain(error)));
      password.value = '';
      password.focus();
    } finally {
      button.disabled = false;
    }
  }}, h('h1', null, words.title), field(words.user, user), field(words.password, password), fault, button);
  return {title: words.title, element: form, close() {}, ready: () => user.focus()};
}
