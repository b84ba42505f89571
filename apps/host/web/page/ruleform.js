// The values of a zone or line beside its shape.
import {h} from './dom.js';
import {field} from './parts.js';
import {texts} from './texts.js';

const NUMBERS = {zone: ['dwell', 'stopped', 'least_age', 'cooldown'], line: ['least_age', 'cooldown']};

/// `rule`: as the interface gives it, or {} for a new one. @returns {element, value(), name(), focus()}
export function ruleForm(kind, rule, changed) {
  const words = texts.workbench;
  const inputs = {};
  const input = (key, properties) => (inputs[key] = h('input', {name: key, oninput: changed, ...properties}));
  const isNew = !rule.name;
  const element = h('div', {class: 'ruleform'},
    isNew && field(words.name, input('name', {value: rule.suggested, required: true, pattern: '[A-Za-z0-9_\\-]{1,64}', maxlength: 64, autocomplete: 'off', spellcheck: false}), words.nameHint),
    field(words.ruleTitle, input('title', {value: rule.title ?? '', maxlength: 100})),
    h('details', null, h('summary', null, words.moreValues),
      NUMBERS[kind].map((key) => field(words.keys[key], input(key, {type: 'number', min: 0, max: 86400, step: 'any', value: rule[key] ?? 0}), words.hints[key])),
      field(words.keys.when, input('when', {value: rule.when ?? '', placeholder: '22:00-06:00 mo-fr'}), words.hints.when)));
  return {
    element,
    name: () => rule.name ?? inputs.name.value.trim(),
    good: () => !inputs.name || inputs.name.reportValidity(),
    focus: () => (inputs.name ?? inputs.title).focus(),
    /// Only what is other than it was.
    value() {
      const value = {};
      if (inputs.title.value !== (rule.title ?? '')) value.title = inputs.title.value;
      if (inputs.when.value.trim() !== (rule.when ?? '')) value.when = inputs.when.value.trim();
      for (const key of NUMBERS[kind]) if (Number(inputs[key].value) !== (rule[key] ?? 0)) value[key] = Number(inputs[key].value);
      return value;
    },
  };
}
