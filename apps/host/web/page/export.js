// Events with their pictures and clips, as one file to be saved.
import {attempt, notice, saveAnswer} from './parts.js';
import {send, url} from './api.js';
import {texts} from './texts.js';

const EXPORT_MOST = 500; // as many as the host takes at once

export function exportEvents(events) {
  return attempt(async () => {
    notice(texts.events.exporting, {stays: true});
    const answer = await send('POST', url('export'), {events: events.slice(0, EXPORT_MOST)});
    await saveAnswer(answer, 'events.zip');
    notice('');
  });
}
